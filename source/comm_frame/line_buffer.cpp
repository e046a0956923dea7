#include <devcomm/line_buffer.h>

#include "internal/mutex_hold.h"
#include "internal/relaxed.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

// GetUsed and ClearAll run beside the others without the lock. So every member function reads each of used,
// readPos and writePos once, and what it stores lies within the capacity whatever ClearAll does in between.

CLineBufMng::CLineBufMng(unsigned int capacity)
    : mutex(), data(nullptr), size(0), used(0), readPos(0), writePos(0)
{
  if (capacity == 0)
  {
    return;
  }
  data = static_cast<char*>(calloc(1, capacity));
  if (data == nullptr)
  {
    return;
  }
  size = capacity;
  pthread_mutex_init(&mutex, nullptr);
}

CLineBufMng::~CLineBufMng()
{
  free(data);
  data = nullptr;
  size = used = readPos = writePos = 0;
}

unsigned int CLineBufMng::Write(char* buf, unsigned int n)
{
  if (size == 0 || buf == nullptr)
  {
    return 0;
  }
  const MutexHold hold(mutex);
  const unsigned int stored = relaxed_load(used);
  const unsigned int at = relaxed_load(writePos);
  const unsigned int count = std::min(n, size - stored);
  const unsigned int first = std::min(count, size - at);
  memcpy(data + at, buf, first);
  memcpy(data, buf + first, count - first);
  relaxed_store(writePos, first == size - at ? count - first : at + first);
  relaxed_store(used, stored + count);
  return count;
}

unsigned int CLineBufMng::Read(char* buf, unsigned int n)
{
  if (size == 0)
  {
    return 0;
  }
  const MutexHold hold(mutex);
  const unsigned int count = CopyOut(buf, n);
  Consume(count);
  return count;
}

unsigned int CLineBufMng::PreRead(char* buf, unsigned int n)
{
  if (size == 0)
  {
    return 0;
  }
  const MutexHold hold(mutex);
  return CopyOut(buf, n);
}

unsigned int CLineBufMng::Skip(unsigned int n)
{
  if (size == 0)
  {
    return 0;
  }
  const MutexHold hold(mutex);
  const unsigned int count = std::min(n, relaxed_load(used));
  Consume(count);
  return count;
}

unsigned int CLineBufMng::GetUsed()
{
  return relaxed_load(used);
}

int CLineBufMng::GetLeft()
{
  if (size == 0)
  {
    return 0;
  }
  const MutexHold hold(mutex);
  return static_cast<int>(size - relaxed_load(used));
}

int CLineBufMng::ClearAll()
{
  relaxed_store(used, 0U);
  relaxed_store(readPos, 0U);
  relaxed_store(writePos, 0U);
  return 0;
}

unsigned int CLineBufMng::CopyOut(char* buf, unsigned int n) const
{
  if (buf == nullptr)
  {
    return 0;
  }
  const unsigned int at = relaxed_load(readPos);
  const unsigned int count = std::min(n, relaxed_load(used));
  const unsigned int first = std::min(count, size - at);
  memcpy(buf, data + at, first);
  memcpy(buf + first, data, count - first);
  return count;
}

void CLineBufMng::Consume(unsigned int n)
{
  const unsigned int stored = relaxed_load(used);
  const unsigned int at = relaxed_load(readPos);
  relaxed_store(readPos, n >= size - at ? n - (size - at) : at + n);
  relaxed_store(used, stored - std::min(n, stored));
}
