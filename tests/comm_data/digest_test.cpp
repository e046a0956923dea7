#include <devcomm/digest.h>

#include "comm_data/sha256_blocks.h"
#include "support/signal_storm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr char kMd5OfAbc[] = "900150983cd24fb0d6963f7d28e17f72";

std::string hex(const unsigned char* bytes, size_t size)
{
  char text[65] = "";
  for (size_t i = 0; i < size; ++i)
    snprintf(text + 2 * i, 3, "%02x", bytes[i]);
  return text;
}

std::string md5(std::string text)
{
  unsigned char digest[16];
  MD5(reinterpret_cast<unsigned char*>(text.data()), digest);
  return hex(digest, sizeof digest);
}

std::string sha(const std::string& text)
{
  unsigned char digest[32];
  sha256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  return hex(digest, sizeof digest);
}

Bytes random_bytes(size_t size)
{
  std::mt19937 random(3);
  Bytes bytes(size);
  for (unsigned char& c : bytes)
    c = static_cast<unsigned char>(random());
  return bytes;
}

} // namespace

TEST(Digest, PublishedVectors)
{
  EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
  EXPECT_EQ(md5(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218"); // no room for its length
  EXPECT_EQ(sha("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(sha(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Digest, PiecesOfEverySizeEqualOnePiece)
{
  Bytes data = random_bytes(1000);
  for (size_t total : {0U, 55U, 56U, 63U, 64U, 119U, 120U, 1000U})
  {
    const std::string text(data.begin(), data.begin() + static_cast<int>(total));
    std::string whole_md5;
    for (size_t piece = 1; piece <= 130; ++piece)
    {
      MD5_CTX m;
      sha256_ctx s;
      MD5Init(&m);
      sha256_init(&s);
      for (size_t at = 0; at < total; at += piece)
      {
        const size_t n = std::min(piece, total - at);
        MD5Update(&m, &data[at], static_cast<unsigned int>(n));
        sha256_update(&s, &data[at], static_cast<unsigned long>(n));
      }
      unsigned char digest[32];
      MD5Final(digest, &m);
      whole_md5 = piece == 1 ? hex(digest, 16) : whole_md5;
      ASSERT_EQ(hex(digest, 16), whole_md5) << total << " in " << piece;
      sha256_final(&s, digest);
      ASSERT_EQ(hex(digest, 32), sha(text)) << total << " in " << piece;
    }
  }
}

TEST(Digest, ProcessorInstructionsEqualPortableCode)
{
  const Sha256Blocks accelerated = sha256_blocks_accelerated();
  if (accelerated == nullptr)
    GTEST_SKIP() << "this processor has no SHA instructions";
  const Bytes data = random_bytes(64 * 20 + 1);
  unsigned int a[8];
  unsigned int b[8];
  memcpy(a, sha256_h0, sizeof a);
  memcpy(b, sha256_h0, sizeof b);
  for (size_t count : {0U, 1U, 2U, 20U})
  {
    accelerated(a, &data[1], count);
    sha256_blocks_portable(b, &data[1], count);
    ASSERT_EQ(memcmp(a, b, sizeof a), 0) << count;
  }
}

TEST(Digest, CountsCarryAndLongMessagesKeepTheirLowLengthWord)
{
  MD5_CTX m;
  MD5Init(&m);
  m.count[0] = 0xFFFFFE00; // 2^29 - 64 bytes absorbed
  Bytes block(64);
  MD5Update(&m, block.data(), 64);
  EXPECT_EQ(m.count[0], 0U);
  EXPECT_EQ(m.count[1], 1U);

  sha256_ctx a;
  sha256_init(&a);
  sha256_ctx b = a;
  b.total_len = 1U << 29; // the length's upper half is not written
  unsigned char x[32];
  unsigned char y[32];
  sha256_final(&a, x);
  sha256_final(&b, y);
  EXPECT_EQ(memcmp(x, y, 32), 0);
}

TEST(Digest, NoPadShowsWholeBlocksOnly)
{
  const Bytes data(64, 'x');
  sha256_ctx context;
  unsigned char out[32];
  sha256_init(&context);
  sha256_update(&context, data.data(), 10);
  sha256_noPad(&context, out);
  EXPECT_EQ(hex(out, 32), "6a09e667bb67ae853c6ef372a54ff53a510e527f9b05688c1f83d9ab5be0cd19");
  sha256_update(&context, data.data(), 54);
  sha256_noPad(&context, out);
  unsigned int h[8];
  memcpy(h, sha256_h0, sizeof h);
  sha256_blocks_portable(h, data.data(), 1);
  EXPECT_EQ(out[0], h[0] >> 24);
  EXPECT_EQ(out[31], h[7] & 0xFF);
}

TEST(Digest, TextsOfBuffersAndFiles)
{
  char text[33];
  EXPECT_EQ(GetMd5FromData("abc", 3, text), 0);
  EXPECT_STREQ(text, kMd5OfAbc);
  EXPECT_EQ(GetMd5FromData("abc", 0, text), -1);
  EXPECT_EQ(CompareMd5Data("abc", 3, (std::string(kMd5OfAbc) + "and more").c_str()), 0);
  EXPECT_EQ(CompareMd5Data("abc", 3, "900150983CD24FB0D6963F7D28E17F72"), -2);
  EXPECT_EQ(CompareMd5Data("abc", 3, "9001"), -2);
  EXPECT_EQ(CompareMd5Data("abc", 3, nullptr), -1);
  EXPECT_EQ(CompareMd5Data(nullptr, 3, kMd5OfAbc), -1);

  char path[] = "/tmp/digest_test_XXXXXX";
  const int fd = mkstemp(path);
  Bytes data = random_bytes(20000);
  memcpy(data.data(), "abc", 3);
  ASSERT_EQ(write(fd, data.data(), data.size()), static_cast<ssize_t>(data.size()));
  close(fd);
  EXPECT_EQ(CompareMd5File(path, 3, kMd5OfAbc), 0);
  for (unsigned limit : {0U, 8192U, 8193U, 20000U, 30000U})
  {
    const unsigned size = limit == 0 || limit > 20000 ? 20000 : limit;
    GetMd5FromData(reinterpret_cast<char*>(data.data()), size, text);
    EXPECT_EQ(CompareMd5File(path, limit, text), 0) << limit;
  }
  unlink(path);
  EXPECT_EQ(GetMd5FromFile(path, 0, text), -1);
  EXPECT_EQ(CompareMd5File(path, 0, kMd5OfAbc), -1);
}

TEST(Digest, ASignalDoesNotCutAPipeShort)
{
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const SignalStorm storm;
  std::thread writer(
      [ends]
      {
        usleep(30000);
        EXPECT_EQ(write(ends[1], "abc", 3), 3);
        close(ends[1]);
      });
  EXPECT_EQ(CompareMd5File(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), 0, kMd5OfAbc), 0);
  writer.join();
  close(ends[0]);
}
