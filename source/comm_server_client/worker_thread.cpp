#include <devcomm/worker_thread.h>

#include "internal/join_thread.h"
#include "internal/relaxed.h"
#include "internal/thread_name.h"

#include <cerrno>
#include <cstdio>
#include <new>

#include <unistd.h>

namespace
{

constexpr int kStopPolls = 100;
constexpr useconds_t kStopPollUs = 100000;

// The handle may be gone once entry has returned: a worker that exits by itself may free it.
void* run_entry(void* arg)
{
  auto* thread = static_cast<CommonThread_st*>(arg);
  thread->entry(thread, thread->arg);
  return nullptr; // ends the thread as pthread_exit(nullptr) does
}

// Needs stateLock.
void reset_to_idle(CommonThread_st* thread)
{
  relaxed_store(thread->name[0], '\0');
  thread->tid = 0;
  relaxed_store(thread->pid, 0);
  relaxed_store(thread->status, 0);
}

// Needs stateLock, which keeps the new thread out of ThreadExit until tid is final.
int create_thread(CommonThread_st* thread, const char* name)
{
  thread->tid = kThreadStarting;
  const int error =
      thread->entry == nullptr ? EINVAL : pthread_create(&thread->tid, nullptr, run_entry, thread);
  if (error != 0)
  {
    printf("start thread fail, name=%s\n", name);
    reset_to_idle(thread);
  }
  return error;
}

// Another call does the tear-down. With pid 0, which is all the library writes, this returns at once.
void wait_for_other_stop(CommonThread_st* thread)
{
  int left = kStopPolls;
  while (relaxed_load(thread->status) != 0)
  {
    const int pid = relaxed_load(thread->pid);
    if (--left == 0)
    {
      printf("ThreadStop %d (%p)thread(%d) (%s) stopping timeout break...\n", kStopPolls,
             static_cast<void*>(thread), pid, ThreadNameCopy(thread->name).text);
      return;
    }
    if (pid == 0)
    {
      return;
    }
    usleep(kStopPollUs);
  }
}

} // namespace

CommonThread_st* ThreadInit()
{
  auto* thread = new (std::nothrow) CommonThread_st();
  if (thread != nullptr)
  {
    pthread_mutex_init(&thread->stateLock, nullptr);
    pthread_mutex_init(&thread->stopLock, nullptr);
  }
  return thread;
}

int ThreadUninit(CommonThread_st* thread)
{
  if (thread == nullptr)
  {
    return -1;
  }
  // A ThreadStop that lost the race may have returned to our caller while the winner holds the locks.
  pthread_mutex_lock(&thread->stopLock);
  pthread_mutex_lock(&thread->stateLock);
  pthread_mutex_unlock(&thread->stateLock);
  pthread_mutex_unlock(&thread->stopLock);
  pthread_mutex_destroy(&thread->stateLock);
  pthread_mutex_destroy(&thread->stopLock);
  delete thread;
  return 0;
}

int ThreadStart(CommonThread_st* thread, void (*entry)(CommonThread_st*, void*), void* arg, const char* name)
{
  if (name == nullptr)
  {
    name = "";
  }
  if (thread == nullptr)
  {
    printf("lt is null, name=%s\n", name);
    return -1;
  }
  pthread_mutex_lock(&thread->stateLock);
  // Before the check for a running thread: a repeated start renames the handle and re-arms the flag.
  relaxed_store(thread->status, 1);
  set_thread_name(thread->name, name);
  int result = 0;
  if (thread->tid != 0)
  {
    printf("thread is running, pid=%d, tid=%d, name=%s\n", thread->pid, static_cast<int>(thread->tid),
           thread->name);
  }
  else
  {
    thread->arg = arg;
    thread->entry = entry;
    result = create_thread(thread, name);
  }
  pthread_mutex_unlock(&thread->stateLock);
  return result; // the handle may be gone already, freed by a worker that ended at once
}

int ThreadGetStatus(CommonThread_st* thread)
{
  return thread == nullptr ? 0 : relaxed_load(thread->status);
}

int ThreadSetStatus(CommonThread_st* thread, int status)
{
  if (thread != nullptr)
  {
    relaxed_store(thread->status, status);
  }
  return 0;
}

int ThreadStop(CommonThread_st* thread)
{
  if (thread == nullptr)
  {
    return 0;
  }
  if (pthread_mutex_trylock(&thread->stopLock) != 0)
  {
    wait_for_other_stop(thread);
    return 0;
  }
  pthread_mutex_lock(&thread->stateLock);
  // An idle handle keeps its status, whatever an application wrote there.
  if (thread->tid != 0)
  {
    relaxed_store(thread->status, 0);
    join_or_detach(thread->tid);
    reset_to_idle(thread);
  }
  pthread_mutex_unlock(&thread->stateLock);
  pthread_mutex_unlock(&thread->stopLock);
  return 0;
}

int ThreadExit(CommonThread_st* thread)
{
  // Held: an owner is joining this very thread and holds stateLock too; it resets the handle.
  if (thread == nullptr || pthread_mutex_trylock(&thread->stopLock) != 0)
  {
    return 0;
  }
  pthread_mutex_lock(&thread->stateLock);
  if (thread->tid != 0)
  {
    relaxed_store(thread->status, 0);
    pthread_detach(thread->tid);
    printf("(%p)thread '%s' stop ok: exit\n", static_cast<void*>(thread), thread->name);
    reset_to_idle(thread);
  }
  pthread_mutex_unlock(&thread->stateLock);
  pthread_mutex_unlock(&thread->stopLock);
  return 0;
}
