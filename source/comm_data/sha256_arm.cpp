#include "comm_data/sha256_blocks.h"

#ifdef DEVCOMM_SHA256_ARM

#include <devcomm/digest.h>

#include <arm_neon.h>
#include <sys/auxv.h>

#if defined(__clang__)
#define SHA_TARGET
#elif defined(__arm__)
#define SHA_TARGET __attribute__((target("arch=armv8-a,fpu=crypto-neon-fp-armv8")))
#else
#define SHA_TARGET __attribute__((target("+crypto")))
#endif

namespace
{

SHA_TARGET inline uint32x4_t load_be(const unsigned char* p)
{
  return vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(p)));
}

// The instructions keep the chaining words in order: {a, b, c, d} and {e, f, g, h}.
SHA_TARGET void sha256_blocks_sha(unsigned int h[8], const unsigned char* blocks, size_t count)
{
  uint32x4_t abcd = vld1q_u32(h);
  uint32x4_t efgh = vld1q_u32(h + 4);

  for (; count > 0; --count, blocks += 64)
  {
    const uint32x4_t abcd_before = abcd;
    const uint32x4_t efgh_before = efgh;
    uint32x4_t w[4];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) // four rounds each
    {
      uint32x4_t& words = w[i % 4];
      words = i < 4 ? load_be(blocks + 16 * i)
                    : vsha256su1q_u32(vsha256su0q_u32(words, w[(i + 1) % 4]), w[(i + 2) % 4], w[(i + 3) % 4]);
      const uint32x4_t keyed = vaddq_u32(words, vld1q_u32(sha256_k + 4 * i));
      const uint32x4_t abcd_old = abcd;
      abcd = vsha256hq_u32(abcd, efgh, keyed);
      efgh = vsha256h2q_u32(efgh, abcd_old, keyed);
    }
    abcd = vaddq_u32(abcd, abcd_before);
    efgh = vaddq_u32(efgh, efgh_before);
  }

  vst1q_u32(h, abcd);
  vst1q_u32(h + 4, efgh);
}

// Bits of the kernel's report that older headers do not name.
bool processor_has_sha()
{
#ifdef __arm__
  return (getauxval(AT_HWCAP2) & 1UL << 3) != 0; // HWCAP2_SHA2
#else
  return (getauxval(AT_HWCAP) & 1UL << 6) != 0; // HWCAP_SHA2
#endif
}

} // namespace

Sha256Blocks sha256_blocks_accelerated()
{
  return processor_has_sha() ? sha256_blocks_sha : nullptr;
}

#endif
