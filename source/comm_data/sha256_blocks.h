#pragma once

#include <cstddef>

/// The SHA-256 compression function in its several forms. Every one takes the eight chaining words h over
/// count consecutive 64-byte blocks, with the same result.

using Sha256Blocks = void (*)(unsigned int h[8], const unsigned char* blocks, size_t count);

/// Runs everywhere; tests hold the others against it.
void sha256_blocks_portable(unsigned int h[8], const unsigned char* blocks, size_t count);

// Set where the compiler can build the processor's SHA instructions behind a function attribute.
#if defined(__x86_64__) || defined(__i386__)
#define DEVCOMM_SHA256_X86 1
#elif (defined(__arm__) && __ARM_ARCH >= 7 || defined(__aarch64__)) && !defined(__ARM_BIG_ENDIAN) &&         \
    (!defined(__clang__) || defined(__ARM_FEATURE_CRYPTO) || defined(__ARM_FEATURE_SHA2))
#define DEVCOMM_SHA256_ARM 1
#endif

/// @return the form that uses the processor's SHA instructions; null when compiler or processor lack them
#if defined(DEVCOMM_SHA256_X86) || defined(DEVCOMM_SHA256_ARM)
Sha256Blocks sha256_blocks_accelerated();
#else
inline Sha256Blocks sha256_blocks_accelerated()
{
  return nullptr;
}
#endif
