// Digests beside OpenSSL's, and the digest of a cached file beside md5sum.

#include "comm_data/rounds.h"
#include "comm_data/sha256_blocks.h"

#include <devcomm/digest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#ifdef DEVCOMM_BENCH_OPENSSL
#include <openssl/evp.h>
#endif

namespace
{

std::vector<unsigned char> random_bytes(size_t size)
{
  std::vector<unsigned char> bytes(size);
  std::mt19937_64 random(1);
  for (size_t i = 0; i + 8 <= size; i += 8)
  {
    const auto word = random();
    memcpy(&bytes[i], &word, 8);
  }
  return bytes;
}

#ifdef DEVCOMM_BENCH_OPENSSL

void openssl_digest(const EVP_MD* kind, const std::vector<unsigned char>& bytes)
{
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, kind, nullptr);
  keep(digest);
}

void buffers(std::vector<unsigned char>& bytes)
{
  const auto size = static_cast<double>(bytes.size());
  const Medians md5 = alternate(
      11,
      [&]
      {
        unsigned char digest[16];
        MD5_CTX context;
        MD5Init(&context);
        MD5Update(&context, bytes.data(), static_cast<unsigned int>(bytes.size()));
        MD5Final(digest, &context);
        keep(digest);
      },
      [&] { openssl_digest(EVP_md5(), bytes); });
  print_row("MD5, 64 MiB", "OpenSSL EVP", size, md5);

  const Medians sha = alternate(
      11,
      [&]
      {
        unsigned char digest[32];
        sha256(bytes.data(), bytes.size(), digest);
        keep(digest);
      },
      [&] { openssl_digest(EVP_sha256(), bytes); });
  print_row("SHA-256, 64 MiB", "OpenSSL EVP", size, sha);
}

// Run in a process of its own, where OpenSSL was told to find no processor extensions.
void scalar_sha256(const std::vector<unsigned char>& bytes)
{
  const Medians sha = alternate(
      7,
      [&]
      {
        unsigned int h[8];
        memcpy(h, sha256_h0, sizeof h);
        sha256_blocks_portable(h, bytes.data(), bytes.size() / 64);
        keep(h);
      },
      [&] { openssl_digest(EVP_sha256(), bytes); });
  print_row("SHA-256 portable, 64 MiB", "OpenSSL EVP, scalar", static_cast<double>(bytes.size()), sha);
}

void run_scalar_process()
{
  const pid_t child = fork();
  if (child == 0)
  {
    setenv("OPENSSL_ia32cap", "0:0", 1);
    setenv("OPENSSL_armcap", "0", 1);
    execl("/proc/self/exe", "digest_bench", "scalar", nullptr);
    _exit(127);
  }
  waitpid(child, nullptr, 0);
}

#endif

void file(const std::vector<unsigned char>& bytes)
{
  char path[] = "/tmp/digest_bench_XXXXXX";
  FILE* out = fdopen(mkstemp(path), "wb");
  constexpr int Copies = 4;
  for (int i = 0; i < Copies && out != nullptr; ++i)
  {
    fwrite(bytes.data(), 1, bytes.size(), out);
  }
  if (out == nullptr || fclose(out) != 0)
  {
    return;
  }
  const std::string command = std::string("md5sum ") + path + " >/dev/null";
  const Medians times = alternate(
      5,
      [&]
      {
        char hex[33];
        GetMd5FromFile(path, 0, hex);
        keep(hex);
      },
      [&]
      {
        if (system(command.c_str()) != 0)
        {
          fprintf(stderr, "md5sum failed\n");
        }
      });
  print_row("GetMd5FromFile, cached 256 MiB", "md5sum", Copies * static_cast<double>(bytes.size()), times);
  unlink(path);
}

} // namespace

int main(int argc, char** /*argv*/)
{
  std::vector<unsigned char> bytes = random_bytes(64 << 20);
#ifdef DEVCOMM_BENCH_OPENSSL
  if (argc > 1)
  {
    scalar_sha256(bytes);
    return 0;
  }
  buffers(bytes);
  run_scalar_process();
#else
  (void)argc;
  printf("built without OpenSSL: the digests of buffers have no peer here\n");
#endif
  file(bytes);
  return 0;
}
