#include <devcomm/thread.h>

#include "internal/join_thread.h"
#include "internal/relaxed.h"
#include "internal/thread_name.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace
{

constexpr int kStopPolls = 100;
constexpr useconds_t kStopPollUs = 100000;

std::atomic<int> g_default_body_count{0}; // shared by all objects: their lines count on together

// The object may be gone once PthreadProc has returned: a thread that exits by itself may free it.
void* run_proc(void* arg)
{
  static_cast<CommonCthread*>(arg)->PthreadProc();
  return nullptr; // ends the thread as pthread_exit(nullptr) does
}

} // namespace

CommonCthread::CommonCthread()
{
  Init();
}

CommonCthread::~CommonCthread()
{
  // Status reads 0 before an ExitSelf, or a Stop that another thread won, has let go of the locks.
  stopLock.Lock();
  stopLock.Unlock();
  stateLock.Lock();
  stateLock.Unlock();
}

void* CommonCthread::PthreadProc()
{
  printf("thread init\n");
  while (GetStatus() != 0)
  {
    sleep(1);
    printf("thread count %d\n", g_default_body_count.fetch_add(1));
  }
  printf("thread uninit\n");
  return nullptr;
}

void CommonCthread::Init()
{
  tid = 0;
  pid = 0;
  relaxed_store(status, 0);
  set_thread_name(name, "");
  memset(reserved, 0, sizeof reserved);
}

int CommonCthread::GetStatus()
{
  return relaxed_load(status);
}

void CommonCthread::SetStatus(int value)
{
  relaxed_store(status, value);
}

int CommonCthread::Start(void* (*entry)(void*), void* arg, const char* text)
{
  CAutoLock guard(&stateLock);
  // Before the check for a running thread: a repeated start renames the object and re-arms the flag.
  relaxed_store(status, 1);
  set_thread_name(name, text != nullptr ? text : "");
  if (tid != 0)
  {
    printf("thread alread running, pid=%d, tid=%d, name=%s\n", pid, static_cast<int>(tid), name);
    return 0;
  }
  tid = kThreadStarting;
  if (entry == nullptr || pthread_create(&tid, nullptr, entry, arg) != 0)
  {
    Init();
    return -1;
  }
  return 0;
}

int CommonCthread::Start(const char* text)
{
  return Start(run_proc, this, text);
}

int CommonCthread::Stop()
{
  if (stopLock.Trylock() != 0)
  {
    for (int i = 0; i < kStopPolls && GetStatus() != 0; ++i)
    {
      printf("CommonCthread thread (%s) stopping ...\n", ThreadNameCopy(name).text);
      usleep(kStopPollUs);
    }
    return 0;
  }
  CAutoLock guard(&stateLock);
  relaxed_store(status, 0);
  if (tid == 0)
  {
    stopLock.Unlock();
    return 0;
  }
  join_or_detach(tid);
  Init();
  stopLock.Unlock();
  printf("thread stop ok, mothed=join able\n");
  return 0;
}

int CommonCthread::ExitSelf()
{
  // Held: a Stop is joining this very thread and holds stateLock too.
  if (stopLock.Trylock() != 0)
  {
    return 0;
  }
  CAutoLock guard(&stateLock);
  relaxed_store(status, 0);
  if (tid != 0)
  {
    pthread_detach(tid);
    Init();
  }
  stopLock.Unlock();
  return 0;
}
