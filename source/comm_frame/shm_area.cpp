// Segments, and copies into and out of a ring of bytes.

#include <devcomm/shm_ring.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/file.h>
#include <sys/shm.h>
#include <unistd.h>

namespace
{
// What runs over the end goes to the start, and once round is the most it may.
bool fits(const char* area, int pos, int areaSize, const char* other, int n)
{
  return area != nullptr && pos >= 0 && pos <= areaSize && n >= 0 && n - (areaSize - pos) <= areaSize &&
         (other != nullptr || n == 0);
}

// memcpy promises nothing for null pointers, not even for no bytes.
void copy(char* to, const char* from, int n)
{
  if (n > 0)
  {
    memcpy(to, from, static_cast<size_t>(n));
  }
}

int position_after(int pos, int areaSize, int n)
{
  return n <= areaSize - pos ? pos + n : n - (areaSize - pos);
}

bool lock_descriptor(int fd)
{
  int result = flock(fd, LOCK_EX);
  while (result != 0 && errno == EINTR)
  {
    result = flock(fd, LOCK_EX);
  }
  if (result != 0)
  {
    close(fd);
  }
  return result == 0;
}
} // namespace

int GetShm(int key, int size)
{
  return shmget(key, static_cast<size_t>(size), IPC_CREAT | 0666);
}

intptr_t AtShm(int shmid)
{
  void* address = shmat(shmid, nullptr, 0);
  return address != reinterpret_cast<void*>(-1) ? reinterpret_cast<intptr_t>(address) : 0;
}

int DtShm(char* addr)
{
  return shmdt(addr);
}

int WriteShm(char* area, int pos, int areaSize, char* src, int n)
{
  if (!fits(area, pos, areaSize, src, n))
  {
    return -1;
  }
  const int first = std::min(n, areaSize - pos);
  copy(area + pos, src, first);
  copy(area, src + first, n - first);
  return position_after(pos, areaSize, n);
}

int ReadShm(char* area, int pos, int areaSize, char* dst, int n)
{
  if (!fits(area, pos, areaSize, dst, n))
  {
    return -1;
  }
  const int first = std::min(n, areaSize - pos);
  copy(dst, area + pos, first);
  copy(dst + first, area, n - first);
  return position_after(pos, areaSize, n);
}

int WriteLockShm(int fd, char* area, int pos, int areaSize, char* src, int n)
{
  if (!fits(area, pos, areaSize, src, n) || !lock_descriptor(fd))
  {
    return -1;
  }
  WriteShm(area, pos, areaSize, src, n);
  flock(fd, LOCK_UN);
  return 0;
}

int ReadLockShm(int fd, char* area, int pos, int areaSize, char* dst, int n)
{
  if (!fits(area, pos, areaSize, dst, n) || !lock_descriptor(fd))
  {
    return -1;
  }
  ReadShm(area, pos, areaSize, dst, n);
  flock(fd, LOCK_UN);
  return 0;
}
