#pragma once

#include <devcomm/export.h>

/// @file
/// Message digests: MD5 (RFC 1321) with lower-case hexadecimal texts of buffers and files, and SHA-256
/// (FIPS 180-2) with a look at its running state.
///
/// A context belongs to one thread at a time; everything else is free of state. The first SHA-256 call
/// chooses the processor's SHA instructions where it has them.

/// A running MD5.
struct MD5_CTX
{
  unsigned int count[2];    ///< bits absorbed, low word first
  unsigned int state[4];    ///< chaining words
  unsigned char buffer[64]; ///< bytes of the block not yet complete
};
static_assert(sizeof(MD5_CTX) == 88, "MD5_CTX is plain");

/// Begins a digest. A null context is ignored, here and below.
DEVCOMM_API void MD5Init(MD5_CTX* context);

/// Absorbs len bytes; null data counts as none.
DEVCOMM_API void MD5Update(MD5_CTX* context, unsigned char* data, unsigned int len);

/// Pads and writes the digest; the context must be initialised again before further use.
DEVCOMM_API void MD5Final(unsigned char digest[16], MD5_CTX* context);

/// Digest of a zero-terminated text, without its zero. A null argument does nothing.
DEVCOMM_API void MD5(unsigned char* text, unsigned char* digest);

/// MD5 of a buffer as 32 lower-case hexadecimal characters and a terminating zero.
///
/// @param hex  33 bytes
/// @return 0; -1 when data or hex is null or len is 0 (unlike MD5, which digests an empty text)
DEVCOMM_API int GetMd5FromData(const char* data, unsigned int len, char* hex);

/// MD5 of a file's first limit bytes, in the form of GetMd5FromData.
///
/// @param limit  bytes; 0 for the whole file. A shorter file is digested whole
/// @return 0; -1 when path or hex is null or the file cannot be opened. What cannot be read counts as the
///         end of the file: a folder gives the digest of no bytes
DEVCOMM_API int GetMd5FromFile(const char* path, unsigned int limit, char* hex);

/// Compares a buffer's MD5 with an expected text.
///
/// @param hex  its first 32 characters count, case included; nothing beyond its end is read
/// @return 0 equal; -2 different; -1 when the digest could not be made or hex is null
DEVCOMM_API int CompareMd5Data(const char* data, unsigned int len, const char* hex);

/// Compares the MD5 of a file's first limit bytes with an expected text; see GetMd5FromFile.
/// @return as CompareMd5Data
DEVCOMM_API int CompareMd5File(const char* path, unsigned int limit, const char* hex);

/// A running SHA-256.
struct sha256_ctx
{
  unsigned int total_len;   ///< bytes in the blocks completed so far, modulo 2^32
  unsigned int len;         ///< bytes waiting in block
  unsigned char block[128]; ///< the waiting bytes, with room for the padding
  unsigned int h[8];        ///< chaining words
};
static_assert(sizeof(sha256_ctx) == 168, "sha256_ctx is plain");

extern DEVCOMM_API const unsigned int sha256_k[64]; ///< round constants
extern DEVCOMM_API const unsigned int sha256_h0[8]; ///< initial chaining words

/// Begins a digest. A null context is ignored, here and below.
DEVCOMM_API void sha256_init(sha256_ctx* context);

/// Absorbs len bytes; null data counts as none.
DEVCOMM_API void sha256_update(sha256_ctx* context, const unsigned char* data, unsigned long len);

/// Runs the compression function over count consecutive 64-byte blocks; the counts are left alone.
DEVCOMM_API void sha256_transf(sha256_ctx* context, const unsigned char* blocks, unsigned long count);

/// Pads and writes the digest, big-endian; the context must be initialised again before further use.
///
/// The message length is padded in as 32 bits, and callers keep digests made so: from 2^29 bytes (512 MiB)
/// on the result is not that of other programs.
DEVCOMM_API void sha256_final(sha256_ctx* context, unsigned char digest[32]);

/// Digest of a buffer in one call.
DEVCOMM_API void sha256(const unsigned char* data, unsigned long len, unsigned char digest[32]);

/// Writes the eight chaining words as they stand, big-endian: a value of exactly the whole 64-byte blocks
/// absorbed so far. Neither padding nor waiting bytes count, and the digest may go on.
DEVCOMM_API void sha256_noPad(sha256_ctx* context, unsigned char out[32]);
