#include <devcomm/digest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

constexpr size_t HexLength = 32;

void final_text(MD5_CTX* context, char* hex)
{
  unsigned char digest[16];
  MD5Final(digest, context);
  for (unsigned char byte : digest)
  {
    *hex++ = "0123456789abcdef"[byte >> 4];
    *hex++ = "0123456789abcdef"[byte & 0x0F];
  }
  *hex = '\0';
}

int compare_text(const char* made, const char* expected)
{
  return strncmp(made, expected, HexLength) == 0 ? 0 : -2;
}

} // namespace

int GetMd5FromData(const char* data, unsigned int len, char* hex)
{
  if (data == nullptr || hex == nullptr || len == 0)
  {
    return -1;
  }
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, reinterpret_cast<unsigned char*>(const_cast<char*>(data)), len);
  final_text(&context, hex);
  return 0;
}

int GetMd5FromFile(const char* path, unsigned int limit, char* hex)
{
  if (path == nullptr || hex == nullptr)
  {
    return -1;
  }
  FILE* file = fopen(path, "rbe");
  if (file == nullptr)
  {
    return -1;
  }
  setvbuf(file, nullptr, _IONBF, 0); // the pieces are read where they are digested
  MD5_CTX context;
  MD5Init(&context);
  unsigned char piece[8192];
  unsigned int left = limit;
  while (limit == 0 || left > 0)
  {
    const size_t wanted = limit == 0 || left > sizeof piece ? sizeof piece : left;
    const size_t got = fread(piece, 1, wanted, file);
    if (got == 0 && ferror(file) != 0 && errno == EINTR) // a signal, while waiting for a pipe
    {
      clearerr(file);
      continue;
    }
    if (got == 0)
    {
      break;
    }
    MD5Update(&context, piece, static_cast<unsigned int>(got));
    left -= static_cast<unsigned int>(got);
  }
  fclose(file);
  final_text(&context, hex);
  return 0;
}

int CompareMd5Data(const char* data, unsigned int len, const char* hex)
{
  char made[HexLength + 1];
  return hex == nullptr || GetMd5FromData(data, len, made) != 0 ? -1 : compare_text(made, hex);
}

int CompareMd5File(const char* path, unsigned int limit, const char* hex)
{
  char made[HexLength + 1];
  return hex == nullptr || GetMd5FromFile(path, limit, made) != 0 ? -1 : compare_text(made, hex);
}
