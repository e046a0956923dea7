#pragma once

#include <cerrno>

#include <pthread.h>

/// What a handle's tid holds while its thread is being created.
constexpr pthread_t kThreadStarting = 0x1234;

/// Waits for a thread to end. A thread that ends itself this way, or one that waits for the caller in turn,
/// would wait forever: it is detached instead.
inline void join_or_detach(pthread_t tid)
{
  if (pthread_equal(tid, pthread_self()) != 0 || pthread_join(tid, nullptr) == EDEADLK)
  {
    pthread_detach(tid);
  }
}
