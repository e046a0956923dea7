#pragma once

#include <pthread.h>

/// Holds a POSIX mutex from here to the end of the scope.
class MutexHold
{
public:
  explicit MutexHold(pthread_mutex_t& held) : MutexHold(&held) {}
  /// @param held  null holds nothing
  explicit MutexHold(pthread_mutex_t* held) : mutex(held)
  {
    if (mutex != nullptr)
    {
      pthread_mutex_lock(mutex);
    }
  }
  ~MutexHold()
  {
    if (mutex != nullptr)
    {
      pthread_mutex_unlock(mutex);
    }
  }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;

private:
  pthread_mutex_t* mutex;
};
