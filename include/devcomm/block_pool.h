#pragma once

/// @file
/// A pool that lends blocks of one size in ring order, for users that give them back in the order they took
/// them. It takes no lock: its user serialises the calls.

#include <devcomm/export.h>

/// A ring of slots, not a free list. Made by fix_mem_init, released by fix_mem_quit; read-only outside.
struct fixed_mem_t
{
  char* blocks;          ///< count x blockSize bytes
  unsigned char* bitmap; ///< one bit per slot asked for; kept zero
  int blockSize;         ///< bytes
  int count;             ///< slots: the number asked for, rounded up to a multiple of 8
  int putIndex;          ///< slot reclaimed last
  int getIndex;          ///< slot lent last
};

/// Makes a pool of n blocks of blockSize bytes, rounded up to a multiple of 8 blocks, all zeroed.
///
/// @param blockSize  bytes, above 0
/// @param n          blocks; 0 or less makes a pool that lends nothing
/// @return the caller's pool, or null when memory ran out or the sizes cannot be
DEVCOMM_API fixed_mem_t* fix_mem_init(int blockSize, int n);

/// Lends the next block of the ring, block 1 first, with the content its last user left.
///
/// @return a block of the pool; null when count - 1 blocks are out, or for a null pool
DEVCOMM_API void* fix_mem_get(fixed_mem_t* pool);

/// Takes back the block that has been out longest.
///
/// @param block  ignored: blocks come back strictly in the order they were lent, whatever is passed here
/// @return 0
///
/// The block lent last is never taken back: with one block out the call changes nothing. Callers count on both.
DEVCOMM_API int fix_mem_put(fixed_mem_t* pool, void* block);

/// Releases the pool and all its blocks, lent ones too. Null is let be.
///
/// @return 0
DEVCOMM_API int fix_mem_quit(fixed_mem_t* pool);
