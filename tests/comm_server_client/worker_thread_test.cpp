#include <devcomm/worker_thread.h>

#include "support/measure.h"

#include <atomic>
#include <thread>

namespace
{

struct Probe
{
  std::atomic<int> runs{0};
  std::atomic<bool> go{false};
};

void run_until_stopped(CommonThread_st* thread, void* arg)
{
  static_cast<Probe*>(arg)->runs++;
  while (ThreadGetStatus(thread) != 0)
    usleep(200);
}

void exit_when_told(CommonThread_st* thread, void* arg)
{
  auto* probe = static_cast<Probe*>(arg);
  while (!probe->go)
    usleep(50);
  ThreadExit(thread);
  probe->runs++;
}

void exit_and_free(CommonThread_st* thread, void* arg)
{
  ThreadExit(thread);
  ThreadUninit(thread);
  static_cast<Probe*>(arg)->runs++;
}

void stop_itself(CommonThread_st* thread, void* arg)
{
  ThreadStop(thread);
  static_cast<Probe*>(arg)->runs++;
}

void wait_for_runs(const Probe& probe, int runs)
{
  while (probe.runs < runs)
    usleep(50);
}

bool idle(const CommonThread_st* thread)
{
  return thread->tid == 0 && thread->pid == 0 && thread->status == 0 && thread->name[0] == '\0';
}

} // namespace

TEST(WorkerThread, ARepeatedStartMakesNoSecondThreadAndAnImpossibleOneNone)
{
  Probe probe;
  CommonThread_st* thread = ThreadInit();
  EXPECT_TRUE(idle(thread));
  EXPECT_EQ(ThreadStart(thread, run_until_stopped, &probe, std::string(80, 'n').c_str()), 0);
  EXPECT_EQ(thread->name, std::string(63, 'n'));
  wait_for_runs(probe, 1);

  const int tid = static_cast<int>(thread->tid);
  CaptureStdout();
  EXPECT_EQ(ThreadStart(thread, stop_itself, nullptr, "again"), 0);
  EXPECT_EQ(GetCapturedStdout(), "thread is running, pid=0, tid=" + std::to_string(tid) + ", name=again\n");
  EXPECT_EQ(thread->arg, &probe);
  EXPECT_EQ(ThreadGetStatus(thread), 1);

  EXPECT_EQ(ThreadStop(thread), 0);
  EXPECT_TRUE(idle(thread));
  EXPECT_EQ(ThreadStart(thread, run_until_stopped, &probe, nullptr), 0);
  EXPECT_EQ(ThreadStop(thread), 0);
  EXPECT_EQ(probe.runs, 2);

  ThreadSetStatus(thread, 7);
  EXPECT_EQ(ThreadStop(thread), 0);
  EXPECT_EQ(ThreadGetStatus(thread), 7) << "an idle handle is left alone";
  EXPECT_EQ(ThreadUninit(thread), 0);

  CaptureStdout();
  EXPECT_EQ(ThreadStart(nullptr, run_until_stopped, nullptr, "lost"), -1);
  EXPECT_EQ(ThreadStart(nullptr, run_until_stopped, nullptr, nullptr), -1);
  EXPECT_EQ(ThreadUninit(nullptr), -1);
  thread = ThreadInit();
  EXPECT_EQ(ThreadStart(thread, nullptr, nullptr, "none"), EINVAL);
  EXPECT_EQ(GetCapturedStdout(), "lt is null, name=lost\nlt is null, name=\nstart thread fail, name=none\n");
  EXPECT_TRUE(idle(thread));
  ThreadUninit(thread);
}

TEST(WorkerThread, AWorkerThatEndsByItselfLeavesAnIdleHandle)
{
  Probe probe;
  CommonThread_st* thread = ThreadInit();
  CaptureStdout();
  ThreadStart(thread, exit_when_told, &probe, "own end");
  probe.go = true;
  wait_for_runs(probe, 1);
  EXPECT_TRUE(idle(thread));
  EXPECT_EQ(ThreadStart(thread, stop_itself, &probe, "stops itself"), 0);
  wait_for_runs(probe, 2);
  EXPECT_TRUE(idle(thread));
  EXPECT_EQ(GetCapturedStdout(),
            "(" + testing::PrintToString(static_cast<void*>(thread)) + ")thread 'own end' stop ok: exit\n");
  ThreadUninit(thread);
}

TEST(WorkerThread, StopAndExitMayRaceAndOneOfThemTearsDown)
{
  CaptureStdout();
  for (int round = 0; round < 300; ++round)
  {
    Probe probe;
    CommonThread_st* thread = ThreadInit();
    ThreadStart(thread, exit_when_told, &probe, "race");
    std::thread second_stopper([&] { ThreadStop(thread); });
    probe.go = true;
    ThreadStop(thread);
    second_stopper.join();
    wait_for_runs(probe, 1);
    ThreadUninit(thread); // waits for whoever still tears down
  }
  for (int round = 0; round < 300; ++round)
  {
    Probe probe;
    ThreadStart(ThreadInit(), exit_and_free, &probe, "frees its own handle");
    wait_for_runs(probe, 1);
  }
  GetCapturedStdout();
}
