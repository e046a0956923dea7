#include "comm_data/sha256_blocks.h"

#include <devcomm/digest.h>

#include <cstdint>
#include <cstring>

namespace
{

inline uint32_t rotate(uint32_t x, int n)
{
  return x >> n | x << (32 - n);
}

inline uint32_t load_be32(const unsigned char* p)
{
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}

// The sums of three rotations are written as nested ones, which two-operand processors do with fewer copies.
inline uint32_t big_sigma0(uint32_t x) // rotations by 2, 13 and 22
{
  return rotate(x ^ rotate(x ^ rotate(x, 9), 11), 2);
}

inline uint32_t big_sigma1(uint32_t x) // rotations by 6, 11 and 25
{
  return rotate(x ^ rotate(x ^ rotate(x, 14), 5), 6);
}

// One round; the next one is called with the words moved along by one. b_xor_c is b ^ c, and leaves as what
// the next round's b ^ c will be: it saves the majority function half its work.
inline void round(uint32_t a, uint32_t b, uint32_t& d, uint32_t e, uint32_t f, uint32_t g, uint32_t& h,
                  uint32_t keyed_word, uint32_t& b_xor_c)
{
  const uint32_t a_xor_b = a ^ b;
  const uint32_t sum = h + keyed_word + (g ^ (e & (f ^ g))) + big_sigma1(e);
  d += sum;
  h = sum + (b ^ (a_xor_b & b_xor_c)) + big_sigma0(a);
  b_xor_c = a_xor_b;
}

// Word i of a window of sixteen; where more rounds follow, the word sixteen further on takes its place.
template <bool More>
inline uint32_t take(uint32_t w[16], int i)
{
  const uint32_t word = w[i];
  if (More)
  {
    const uint32_t old = w[(i + 1) & 15];
    const uint32_t recent = w[(i + 14) & 15];
    w[i] = word + w[(i + 9) & 15] + (rotate(old, 7) ^ rotate(old, 18) ^ old >> 3) +
           (rotate(recent, 17) ^ rotate(recent, 19) ^ recent >> 10);
  }
  return word;
}

template <bool More>
inline void sixteen_rounds(uint32_t v[8], uint32_t w[16], const uint32_t* k)
{
  uint32_t a = v[0], b = v[1], c = v[2], d = v[3], e = v[4], f = v[5], g = v[6], h = v[7];
  uint32_t x = b ^ c;
  round(a, b, d, e, f, g, h, take<More>(w, 0) + k[0], x);
  round(h, a, c, d, e, f, g, take<More>(w, 1) + k[1], x);
  round(g, h, b, c, d, e, f, take<More>(w, 2) + k[2], x);
  round(f, g, a, b, c, d, e, take<More>(w, 3) + k[3], x);
  round(e, f, h, a, b, c, d, take<More>(w, 4) + k[4], x);
  round(d, e, g, h, a, b, c, take<More>(w, 5) + k[5], x);
  round(c, d, f, g, h, a, b, take<More>(w, 6) + k[6], x);
  round(b, c, e, f, g, h, a, take<More>(w, 7) + k[7], x);
  round(a, b, d, e, f, g, h, take<More>(w, 8) + k[8], x);
  round(h, a, c, d, e, f, g, take<More>(w, 9) + k[9], x);
  round(g, h, b, c, d, e, f, take<More>(w, 10) + k[10], x);
  round(f, g, a, b, c, d, e, take<More>(w, 11) + k[11], x);
  round(e, f, h, a, b, c, d, take<More>(w, 12) + k[12], x);
  round(d, e, g, h, a, b, c, take<More>(w, 13) + k[13], x);
  round(c, d, f, g, h, a, b, take<More>(w, 14) + k[14], x);
  round(b, c, e, f, g, h, a, take<More>(w, 15) + k[15], x);
  v[0] = a, v[1] = b, v[2] = c, v[3] = d, v[4] = e, v[5] = f, v[6] = g, v[7] = h;
}

void one_block(uint32_t h[8], const unsigned char* block)
{
  uint32_t w[16];
  for (int t = 0; t < 16; ++t)
  {
    w[t] = load_be32(block + 4 * t);
  }
  uint32_t v[8];
  memcpy(v, h, sizeof v);
  for (int t = 0; t < 48; t += 16)
  {
    sixteen_rounds<true>(v, w, sha256_k + t);
  }
  sixteen_rounds<false>(v, w, sha256_k + 48);
  for (int i = 0; i < 8; ++i)
  {
    h[i] += v[i];
  }
}

} // namespace

void sha256_blocks_portable(unsigned int h[8], const unsigned char* blocks, size_t count)
{
  for (; count > 0; --count, blocks += 64)
  {
    one_block(h, blocks);
  }
}
