#pragma once

#include <pthread.h>

/// Holds a POSIX mutex from here to the end of the scope.
class MutexHold
{
public:
  explicit MutexHold(pthread_mutex_t& held) : mutex(held)
  {
    pthread_mutex_lock(&mutex);
  }
  ~MutexHold()
  {
    pthread_mutex_unlock(&mutex);
  }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;

private:
  pthread_mutex_t& mutex;
};
