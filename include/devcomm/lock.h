#pragma once

/// @file
/// A mutex and an exclusive lock on a file, each with a holder for one scope.
///
///     CLock lock;
///     {
///       CAutoLock guard(&lock);
///       // one thread at a time
///     }

#include <devcomm/export.h>

#include <cstdint>

#include <pthread.h>

/// A mutex between the threads of one process; not recursive. Any thread may call; whoever locked unlocks.
class DEVCOMM_API CLock
{
public:
  CLock();
  virtual ~CLock();

  CLock(const CLock&) = delete;
  CLock& operator=(const CLock&) = delete;

  /// Waits for the mutex. @return 0, or the error number of the mutex call
  int Lock();

  /// @return 0, or the error number of the mutex call
  int Unlock();

  /// Takes the mutex if it is free and never waits. @return 0 when taken, EBUSY when somebody holds it
  int Trylock();

private:
  pthread_mutex_t m_mutex;
};

/// Holds a CLock for one scope. A null lock does nothing.
class DEVCOMM_API CAutoLock
{
public:
  /// @param lock  must outlive the holder; may be null
  CAutoLock(CLock* lock);
  virtual ~CAutoLock();

  CAutoLock(const CAutoLock&) = delete;
  CAutoLock& operator=(const CAutoLock&) = delete;

private:
  CLock* m_lock;
};

/// An exclusive advisory lock on a file (flock), between processes. Each object opens the file for itself,
/// so that two objects on one path exclude each other inside a process too; one object excludes nothing
/// between the threads that share it, nor between a process and a child forked from it.
class DEVCOMM_API CFileLock
{
public:
  /// Opens the file, or makes it with mode 0666 less the umask, so that processes of other users can share
  /// it. The descriptor closes on exec. A file that cannot be opened makes Lock and Unlock return -1.
  ///
  /// @param path  not kept; null counts as a file that cannot be opened
  CFileLock(char* path);

  /// Closes the file, which also gives the lock up.
  ~CFileLock();

  CFileLock(const CFileLock&) = delete;
  CFileLock& operator=(const CFileLock&) = delete;

  /// Waits for the lock; signals do not end the wait. @return 0, or -1 with errno of the failed call
  int Lock();

  /// Gives the lock up, also when it was not held. @return 0, or -1 with errno of the failed call
  int Unlock();

private:
  int32_t fd; // 0 counts as invalid, as -1 does: callers rely on "above 0"
};

/// Holds a CFileLock for one scope. A null lock does nothing.
class DEVCOMM_API CFileAutoLock
{
public:
  /// @param lock  must outlive the holder; may be null
  CFileAutoLock(CFileLock* lock);
  ~CFileAutoLock();

  CFileAutoLock(const CFileAutoLock&) = delete;
  CFileAutoLock& operator=(const CFileAutoLock&) = delete;

private:
  CFileLock* m_lock;
};
