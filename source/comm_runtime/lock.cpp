#include <devcomm/lock.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

constexpr mode_t kLockFileMode = 0666;

int flock_uninterrupted(int fd, int operation)
{
  int result = 0;
  do
  {
    result = flock(fd, operation);
  } while (result < 0 && errno == EINTR);
  return result;
}

} // namespace

CLock::CLock()
{
  pthread_mutex_init(&m_mutex, nullptr);
}

CLock::~CLock()
{
  pthread_mutex_destroy(&m_mutex);
}

int CLock::Lock()
{
  return pthread_mutex_lock(&m_mutex);
}

int CLock::Unlock()
{
  return pthread_mutex_unlock(&m_mutex);
}

int CLock::Trylock()
{
  return pthread_mutex_trylock(&m_mutex);
}

CAutoLock::CAutoLock(CLock* lock) : m_lock(lock)
{
  if (m_lock != nullptr)
  {
    m_lock->Lock();
  }
}

CAutoLock::~CAutoLock()
{
  if (m_lock != nullptr)
  {
    m_lock->Unlock();
  }
}

CFileLock::CFileLock(char* path)
    : fd(path == nullptr ? -1 : open(path, O_RDWR | O_CREAT | O_CLOEXEC, kLockFileMode))
{
}

CFileLock::~CFileLock()
{
  if (fd > 0)
  {
    close(fd);
  }
}

int CFileLock::Lock()
{
  return fd > 0 ? flock_uninterrupted(fd, LOCK_EX) : -1;
}

int CFileLock::Unlock()
{
  return fd > 0 ? flock_uninterrupted(fd, LOCK_UN) : -1;
}

CFileAutoLock::CFileAutoLock(CFileLock* lock) : m_lock(lock)
{
  if (m_lock != nullptr)
  {
    m_lock->Lock();
  }
}

CFileAutoLock::~CFileAutoLock()
{
  if (m_lock != nullptr)
  {
    m_lock->Unlock();
  }
}
