#include <devcomm/digest.h>

#include <cstdint>
#include <cstring>

namespace
{

inline uint32_t load_le32(const unsigned char* p)
{
  return static_cast<uint32_t>(p[3]) << 24 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[1]) << 8 | p[0];
}

void store_le32(unsigned char* p, uint32_t value)
{
  for (int shift = 0; shift < 32; shift += 8)
  {
    *p++ = static_cast<unsigned char>(value >> shift);
  }
}

inline uint32_t rotated_left(uint32_t x, int n)
{
  return x << n | x >> (32 - n);
}

// One step per round function. b is the word that the step before has just made, so each function is
// written with b entering last: the steps form one long chain and its length is the speed.
inline void f(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, int s, uint32_t k)
{
  a = rotated_left(a + k + word + (d ^ (b & (c ^ d))), s) + b;
}

inline void g(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, int s, uint32_t k)
{
  // The halves share no bit, so they may be added one after the other, the one without b first.
  a = rotated_left((a + k + word + (c & ~d)) + (b & d), s) + b;
}

inline void h(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, int s, uint32_t k)
{
  a = rotated_left(a + k + word + ((c ^ d) ^ b), s) + b;
}

inline void i(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, int s, uint32_t k)
{
  a = rotated_left(a + k + word + (c ^ (b | ~d)), s) + b;
}

void one_block(uint32_t state[4], const unsigned char* block)
{
  uint32_t a = state[0];
  uint32_t b = state[1];
  uint32_t c = state[2];
  uint32_t d = state[3];
  uint32_t x[16];
  for (int word = 0; word < 16; ++word)
  {
    x[word] = load_le32(block + 4 * word);
  }

  f(a, b, c, d, x[0], 7, 0xd76aa478);
  f(d, a, b, c, x[1], 12, 0xe8c7b756);
  f(c, d, a, b, x[2], 17, 0x242070db);
  f(b, c, d, a, x[3], 22, 0xc1bdceee);
  f(a, b, c, d, x[4], 7, 0xf57c0faf);
  f(d, a, b, c, x[5], 12, 0x4787c62a);
  f(c, d, a, b, x[6], 17, 0xa8304613);
  f(b, c, d, a, x[7], 22, 0xfd469501);
  f(a, b, c, d, x[8], 7, 0x698098d8);
  f(d, a, b, c, x[9], 12, 0x8b44f7af);
  f(c, d, a, b, x[10], 17, 0xffff5bb1);
  f(b, c, d, a, x[11], 22, 0x895cd7be);
  f(a, b, c, d, x[12], 7, 0x6b901122);
  f(d, a, b, c, x[13], 12, 0xfd987193);
  f(c, d, a, b, x[14], 17, 0xa679438e);
  f(b, c, d, a, x[15], 22, 0x49b40821);

  g(a, b, c, d, x[1], 5, 0xf61e2562);
  g(d, a, b, c, x[6], 9, 0xc040b340);
  g(c, d, a, b, x[11], 14, 0x265e5a51);
  g(b, c, d, a, x[0], 20, 0xe9b6c7aa);
  g(a, b, c, d, x[5], 5, 0xd62f105d);
  g(d, a, b, c, x[10], 9, 0x02441453);
  g(c, d, a, b, x[15], 14, 0xd8a1e681);
  g(b, c, d, a, x[4], 20, 0xe7d3fbc8);
  g(a, b, c, d, x[9], 5, 0x21e1cde6);
  g(d, a, b, c, x[14], 9, 0xc33707d6);
  g(c, d, a, b, x[3], 14, 0xf4d50d87);
  g(b, c, d, a, x[8], 20, 0x455a14ed);
  g(a, b, c, d, x[13], 5, 0xa9e3e905);
  g(d, a, b, c, x[2], 9, 0xfcefa3f8);
  g(c, d, a, b, x[7], 14, 0x676f02d9);
  g(b, c, d, a, x[12], 20, 0x8d2a4c8a);

  h(a, b, c, d, x[5], 4, 0xfffa3942);
  h(d, a, b, c, x[8], 11, 0x8771f681);
  h(c, d, a, b, x[11], 16, 0x6d9d6122);
  h(b, c, d, a, x[14], 23, 0xfde5380c);
  h(a, b, c, d, x[1], 4, 0xa4beea44);
  h(d, a, b, c, x[4], 11, 0x4bdecfa9);
  h(c, d, a, b, x[7], 16, 0xf6bb4b60);
  h(b, c, d, a, x[10], 23, 0xbebfbc70);
  h(a, b, c, d, x[13], 4, 0x289b7ec6);
  h(d, a, b, c, x[0], 11, 0xeaa127fa);
  h(c, d, a, b, x[3], 16, 0xd4ef3085);
  h(b, c, d, a, x[6], 23, 0x04881d05);
  h(a, b, c, d, x[9], 4, 0xd9d4d039);
  h(d, a, b, c, x[12], 11, 0xe6db99e5);
  h(c, d, a, b, x[15], 16, 0x1fa27cf8);
  h(b, c, d, a, x[2], 23, 0xc4ac5665);

  i(a, b, c, d, x[0], 6, 0xf4292244);
  i(d, a, b, c, x[7], 10, 0x432aff97);
  i(c, d, a, b, x[14], 15, 0xab9423a7);
  i(b, c, d, a, x[5], 21, 0xfc93a039);
  i(a, b, c, d, x[12], 6, 0x655b59c3);
  i(d, a, b, c, x[3], 10, 0x8f0ccc92);
  i(c, d, a, b, x[10], 15, 0xffeff47d);
  i(b, c, d, a, x[1], 21, 0x85845dd1);
  i(a, b, c, d, x[8], 6, 0x6fa87e4f);
  i(d, a, b, c, x[15], 10, 0xfe2ce6e0);
  i(c, d, a, b, x[6], 15, 0xa3014314);
  i(b, c, d, a, x[13], 21, 0x4e0811a1);
  i(a, b, c, d, x[4], 6, 0xf7537e82);
  i(d, a, b, c, x[11], 10, 0xbd3af235);
  i(c, d, a, b, x[2], 15, 0x2ad7d2bb);
  i(b, c, d, a, x[9], 21, 0xeb86d391);

  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

} // namespace

void MD5Init(MD5_CTX* context)
{
  if (context != nullptr)
  {
    *context = {{0, 0}, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {}};
  }
}

void MD5Update(MD5_CTX* context, unsigned char* data, unsigned int len)
{
  if (context == nullptr || data == nullptr || len == 0)
  {
    return;
  }
  const unsigned int waiting = context->count[0] / 8 % 64;
  const uint64_t bits =
      (static_cast<uint64_t>(context->count[1]) << 32 | context->count[0]) + static_cast<uint64_t>(len) * 8;
  context->count[0] = static_cast<unsigned int>(bits);
  context->count[1] = static_cast<unsigned int>(bits >> 32);

  if (waiting > 0)
  {
    const unsigned int room = 64 - waiting;
    const unsigned int fill = len < room ? len : room;
    memcpy(context->buffer + waiting, data, fill);
    data += fill;
    len -= fill;
    if (fill < room)
    {
      return;
    }
    one_block(context->state, context->buffer);
  }
  for (; len >= 64; len -= 64, data += 64)
  {
    one_block(context->state, data);
  }
  memcpy(context->buffer, data, len);
}

void MD5Final(unsigned char digest[16], MD5_CTX* context)
{
  if (digest == nullptr || context == nullptr)
  {
    return;
  }
  unsigned char length[8];
  store_le32(length, context->count[0]);
  store_le32(length + 4, context->count[1]);

  unsigned char padding[64] = {0x80};
  const unsigned int waiting = context->count[0] / 8 % 64;
  MD5Update(context, padding, (waiting < 56 ? 56 : 120) - waiting);
  MD5Update(context, length, sizeof length);
  for (int word = 0; word < 4; ++word)
  {
    store_le32(digest + 4 * word, context->state[word]);
  }
}

void MD5(unsigned char* text, unsigned char* digest)
{
  if (text == nullptr || digest == nullptr)
  {
    return;
  }
  constexpr size_t Piece = 1U << 30; // the update's length is an unsigned int
  MD5_CTX context;
  MD5Init(&context);
  size_t left = strlen(reinterpret_cast<char*>(text));
  for (; left > Piece; left -= Piece, text += Piece)
  {
    MD5Update(&context, text, Piece);
  }
  MD5Update(&context, text, static_cast<unsigned int>(left));
  MD5Final(digest, &context);
}
