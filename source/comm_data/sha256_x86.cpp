#include "comm_data/sha256_blocks.h"

#ifdef DEVCOMM_SHA256_X86

#include <devcomm/digest.h>

#include <cpuid.h>
#include <immintrin.h>

#define SHA_TARGET __attribute__((target("sha,sse4.1")))

namespace
{

SHA_TARGET inline __m128i load(const void* p)
{
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

// Four schedule words out of the sixteen before them, in place of the oldest four.
SHA_TARGET inline __m128i next_words(__m128i w0, __m128i w1, __m128i w2, __m128i w3)
{
  const __m128i sum = _mm_add_epi32(_mm_sha256msg1_epu32(w0, w1), _mm_alignr_epi8(w3, w2, 4));
  return _mm_sha256msg2_epu32(sum, w3);
}

// The instructions keep the chaining words as the vectors {a, b, e, f} and {c, d, g, h}.
SHA_TARGET void sha256_blocks_sha(unsigned int h[8], const unsigned char* blocks, size_t count)
{
  const __m128i big_endian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  const __m128i cdab = _mm_shuffle_epi32(load(h), 0xB1);
  const __m128i efgh = _mm_shuffle_epi32(load(h + 4), 0x1B);
  __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

  for (; count > 0; --count, blocks += 64)
  {
    const __m128i abef_before = abef;
    const __m128i cdgh_before = cdgh;
    __m128i w[4];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) // four rounds each
    {
      __m128i& words = w[i % 4];
      words = i < 4 ? _mm_shuffle_epi8(load(blocks + 16 * i), big_endian)
                    : next_words(words, w[(i + 1) % 4], w[(i + 2) % 4], w[(i + 3) % 4]);
      const __m128i keyed = _mm_add_epi32(words, load(sha256_k + 4 * i));
      cdgh = _mm_sha256rnds2_epu32(cdgh, abef, keyed);
      abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(keyed, 0x0E));
    }
    abef = _mm_add_epi32(abef, abef_before);
    cdgh = _mm_add_epi32(cdgh, cdgh_before);
  }

  const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(h), _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(h + 4), _mm_alignr_epi8(dchg, feba, 8));
}

// Asked of the processor itself: older compilers' run-time detection does not know the extension.
bool processor_has_sha()
{
  constexpr unsigned int Ssse3 = 1U << 9;
  constexpr unsigned int Sse41 = 1U << 19;
  constexpr unsigned int Sha = 1U << 29;
  unsigned int a = 0;
  unsigned int b = 0;
  unsigned int c = 0;
  unsigned int d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & Ssse3) == 0 || (c & Sse41) == 0)
  {
    return false;
  }
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & Sha) != 0;
}

} // namespace

Sha256Blocks sha256_blocks_accelerated()
{
  return processor_has_sha() ? sha256_blocks_sha : nullptr;
}

#endif
