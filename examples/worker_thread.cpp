// A worker that counts until it is stopped, and one that ends by itself.
#include <devcomm/worker_thread.h>

#include <atomic>
#include <cstdio>

#include <unistd.h>

static std::atomic<int> g_count{0};

static void CountUntilStopped(CommonThread_st* thread, void* /*arg*/)
{
  while (ThreadGetStatus(thread) != 0)
  {
    ++g_count;
    usleep(1000);
  }
}

static void CountToTen(CommonThread_st* thread, void* /*arg*/)
{
  while (ThreadGetStatus(thread) != 0 && g_count < 10)
  {
    ++g_count;
  }
  ThreadExit(thread); // nobody has to join it; the handle is idle from here on
}

int main()
{
  CommonThread_st* thread = ThreadInit();
  if (thread == nullptr || ThreadStart(thread, CountUntilStopped, nullptr, "counter") != 0)
  {
    return 1;
  }
  usleep(20000);
  ThreadStop(thread); // returns when the worker has ended
  printf("counted to %d\n", g_count.load());

  g_count = 0;
  ThreadStart(thread, CountToTen, nullptr, "ten");
  while (ThreadGetStatus(thread) != 0)
  {
    usleep(1000);
  }
  ThreadUninit(thread);
  printf("counted to %d\n", g_count.load());
  return g_count == 10 ? 0 : 1;
}
