#include "comm_data/frame_escape.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cstdint>
#include <immintrin.h>

#define AVX2_TARGET __attribute__((target("avx2,popcnt")))

// Random bytes hold an escaped one every 128, and a processor that guesses "plain" loses more time on each
// of them than on all the plain bytes. So nothing here branches on the data: 32 bytes are compared at once,
// then each eight of them are moved into their places by a byte shuffle taken from a table of 256.

namespace
{

constexpr unsigned char Nothing = 0x80; // a shuffle writes 0 for it

// For each mask of eight bytes to be escaped: byte 8, which holds 0x7D, goes before every one of them.
struct alignas(16) SpreadTable
{
  unsigned char places[256][16] = {};

  constexpr SpreadTable()
  {
    for (unsigned mask = 0; mask < 256; ++mask)
    {
      int to = 0;
      for (unsigned char from = 0; from < 8; ++from)
      {
        if ((mask >> from & 1U) != 0)
        {
          places[mask][to++] = 8;
        }
        places[mask][to++] = from;
      }
      while (to < 16)
      {
        places[mask][to++] = Nothing;
      }
    }
  }
};

// For each mask of eight bytes to be left out: the others close up.
struct alignas(8) CloseUpTable
{
  unsigned char places[256][8] = {};

  constexpr CloseUpTable()
  {
    for (unsigned mask = 0; mask < 256; ++mask)
    {
      int to = 0;
      for (unsigned char from = 0; from < 8; ++from)
      {
        if ((mask >> from & 1U) == 0)
        {
          places[mask][to++] = from;
        }
      }
      while (to < 8)
      {
        places[mask][to++] = Nothing;
      }
    }
  }
};

constexpr SpreadTable Spread;
constexpr CloseUpTable CloseUp;

// Blocks are taken while this much is left: what any eight bytes are stored as, up to 16 bytes, then stays
// inside the result of the bytes that follow.
constexpr int Block = 32;
constexpr int LeastLeft = 48;

AVX2_TARGET inline __m256i load32(const unsigned char* p)
{
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

AVX2_TARGET inline __m128i load8(const unsigned char* p)
{
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

AVX2_TARGET inline int count(uint32_t mask)
{
  return __builtin_popcount(mask);
}

AVX2_TARGET EscapeCursor escape_avx2(const unsigned char* in, int end, unsigned char* out, EscapeCursor at)
{
  const __m256i escape = _mm256_set1_epi8(0x7D);
  for (; end - at.in >= LeastLeft; at.in += Block)
  {
    const __m256i block = load32(in + at.in);
    const __m256i special =
        _mm256_or_si256(_mm256_cmpeq_epi8(block, escape), _mm256_cmpeq_epi8(block, _mm256_set1_epi8(0x7E)));
    const auto mask = static_cast<uint32_t>(_mm256_movemask_epi8(special));
    alignas(Block) unsigned char seconds[Block]; // 0x7E is sent as 0x02, 0x7D as 0x01
    _mm256_store_si256(reinterpret_cast<__m256i*>(seconds),
                       _mm256_xor_si256(block, _mm256_and_si256(special, _mm256_set1_epi8(0x7C))));
#pragma GCC unroll 4
    for (int i = 0; i < Block; i += 8)
    {
      const uint32_t eight = mask >> i & 0xFF;
      const auto* places = reinterpret_cast<const __m128i*>(Spread.places[eight]);
      const __m128i bytes = _mm_unpacklo_epi64(load8(seconds + i), _mm256_castsi256_si128(escape));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at.out),
                       _mm_shuffle_epi8(bytes, _mm_load_si128(places)));
      at.out += 8 + count(eight);
    }
  }
  return escape_plain(in, end, out, at);
}

// Works in place too: a block is read before anything is stored over it.
AVX2_TARGET EscapeCursor unescape_avx2(const unsigned char* in, int end, unsigned char* out, EscapeCursor at)
{
  const __m256i one = _mm256_set1_epi8(0x01);
  uint32_t taken = 0; // 1: the block's first byte ended a pair that began in the block before
  for (; end - at.in >= LeastLeft; at.in += Block)
  {
    const __m256i block = load32(in + at.in);
    const __m256i next = load32(in + at.in + 1);
    const __m256i second =
        _mm256_or_si256(_mm256_cmpeq_epi8(next, one), _mm256_cmpeq_epi8(next, _mm256_set1_epi8(0x02)));
    const __m256i pair = _mm256_and_si256(_mm256_cmpeq_epi8(block, _mm256_set1_epi8(0x7D)), second);
    const auto starts = static_cast<uint32_t>(_mm256_movemask_epi8(pair));
    const uint32_t dropped = starts << 1 | taken; // each pair's value stands in its first byte
    taken = starts >> 31;
    alignas(Block) unsigned char values[Block]; // 0x7D 0x02 is 0x7E, 0x7D 0x01 is 0x7D
    _mm256_store_si256(reinterpret_cast<__m256i*>(values),
                       _mm256_xor_si256(block, _mm256_and_si256(pair, _mm256_xor_si256(next, one))));
#pragma GCC unroll 4
    for (int i = 0; i < Block; i += 8)
    {
      const uint32_t eight = dropped >> i & 0xFF;
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + at.out),
                       _mm_shuffle_epi8(load8(values + i), load8(CloseUp.places[eight])));
      at.out += 8 - count(eight);
    }
  }
  at.in += static_cast<int>(taken);
  return unescape_plain(in, end, out, at);
}

} // namespace

EscapeLoops escape_loops()
{
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"))
  {
    return {escape_avx2, unescape_avx2};
  }
  return {};
}

#endif
