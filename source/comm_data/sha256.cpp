#include "comm_data/sha256_blocks.h"

#include <devcomm/digest.h>

#include <cstring>

const unsigned int sha256_k[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

const unsigned int sha256_h0[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

namespace
{

constexpr unsigned int BlockSize = 64;

void store_be32(unsigned char* p, unsigned int value)
{
  for (int shift = 24; shift >= 0; shift -= 8)
  {
    *p++ = static_cast<unsigned char>(value >> shift);
  }
}

void store_chaining_words(unsigned char out[32], const sha256_ctx* context)
{
  for (int i = 0; i < 8; ++i)
  {
    store_be32(out + 4 * i, context->h[i]);
  }
}

Sha256Blocks choose_blocks()
{
  const Sha256Blocks accelerated = sha256_blocks_accelerated();
  return accelerated != nullptr ? accelerated : sha256_blocks_portable;
}

} // namespace

void sha256_init(sha256_ctx* context)
{
  if (context != nullptr)
  {
    *context = {};
    memcpy(context->h, sha256_h0, sizeof context->h);
  }
}

void sha256_transf(sha256_ctx* context, const unsigned char* blocks, unsigned long count)
{
  static const Sha256Blocks run_blocks = choose_blocks();
  if (context != nullptr && blocks != nullptr)
  {
    run_blocks(context->h, blocks, count);
  }
}

void sha256_update(sha256_ctx* context, const unsigned char* data, unsigned long len)
{
  if (context == nullptr || data == nullptr || len == 0)
  {
    return;
  }
  const unsigned int waiting = context->len % BlockSize;
  if (len < BlockSize - waiting)
  {
    memcpy(context->block + waiting, data, len);
    context->len = waiting + static_cast<unsigned int>(len);
    return;
  }
  if (waiting > 0)
  {
    const unsigned int fill = BlockSize - waiting;
    memcpy(context->block + waiting, data, fill);
    sha256_transf(context, context->block, 1);
    context->total_len += BlockSize;
    data += fill;
    len -= fill;
  }
  const unsigned long whole = len / BlockSize;
  sha256_transf(context, data, whole);
  context->total_len += static_cast<unsigned int>(whole * BlockSize);
  context->len = static_cast<unsigned int>(len % BlockSize);
  memcpy(context->block, data + whole * BlockSize, context->len);
}

void sha256_final(sha256_ctx* context, unsigned char digest[32])
{
  if (context == nullptr || digest == nullptr)
  {
    return;
  }
  const unsigned int waiting = context->len % BlockSize;
  const unsigned int blocks = waiting < 56 ? 1 : 2;
  const unsigned int end = blocks * BlockSize;
  context->block[waiting] = 0x80;
  memset(context->block + waiting + 1, 0, end - waiting - 1);
  // The upper half of the length field stays zero: stored digests of long messages depend on it.
  store_be32(context->block + end - 4, (context->total_len + waiting) << 3);
  sha256_transf(context, context->block, blocks);
  store_chaining_words(digest, context);
}

void sha256(const unsigned char* data, unsigned long len, unsigned char digest[32])
{
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, data, len);
  sha256_final(&context, digest);
}

void sha256_noPad(sha256_ctx* context, unsigned char out[32])
{
  if (context != nullptr && out != nullptr)
  {
    store_chaining_words(out, context);
  }
}
