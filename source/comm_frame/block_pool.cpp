#include <devcomm/block_pool.h>

#include <climits>
#include <cstdint>
#include <cstdlib>

fixed_mem_t* fix_mem_init(int blockSize, int n)
{
  const int64_t asked = n > 0 ? n : 0;
  const int64_t count = (asked + 7) / 8 * 8;
  if (blockSize < 1 || count > INT_MAX || static_cast<uint64_t>(count * blockSize) > SIZE_MAX)
  {
    return nullptr;
  }
  auto* pool = static_cast<fixed_mem_t*>(calloc(1, sizeof(fixed_mem_t)));
  if (pool == nullptr)
  {
    return nullptr;
  }
  // calloc may return null for 0 bytes; that is no failure, so an empty pool gets a byte.
  pool->blocks = static_cast<char*>(calloc(1, count > 0 ? static_cast<size_t>(count * blockSize) : 1));
  pool->bitmap = static_cast<unsigned char*>(calloc(1, count > 0 ? static_cast<size_t>(count / 8) : 1));
  pool->blockSize = blockSize;
  pool->count = static_cast<int>(count);
  if (pool->blocks == nullptr || pool->bitmap == nullptr)
  {
    fix_mem_quit(pool);
    return nullptr;
  }
  return pool;
}

void* fix_mem_get(fixed_mem_t* pool)
{
  if (pool == nullptr || pool->count < 1)
  {
    return nullptr;
  }
  const int next = (pool->getIndex + 1) % pool->count;
  if (next == pool->putIndex)
  {
    return nullptr;
  }
  pool->getIndex = next;
  return pool->blocks + static_cast<size_t>(pool->blockSize) * static_cast<size_t>(next);
}

int fix_mem_put(fixed_mem_t* pool, void* /*block*/)
{
  if (pool == nullptr || pool->count < 1)
  {
    return 0;
  }
  const int next = (pool->putIndex + 1) % pool->count;
  if (next != pool->getIndex)
  {
    pool->putIndex = next;
  }
  return 0;
}

int fix_mem_quit(fixed_mem_t* pool)
{
  if (pool != nullptr)
  {
    free(pool->blocks);
    free(pool->bitmap);
    free(pool);
  }
  return 0;
}
