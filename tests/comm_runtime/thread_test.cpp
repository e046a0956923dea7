#include <devcomm/thread.h>

#include "support/measure.h"

#include <atomic>
#include <thread>

namespace
{

class Body : public CommonCthread
{
public:
  void* PthreadProc() override
  {
    runs++;
    while (GetStatus() != 0 && !leave)
      usleep(200);
    if (leave)
      ExitSelf();
    ended++;
    return nullptr;
  }

  bool idle() const
  {
    return tid == 0 && pid == 0 && status == 0 && name[0] == '\0';
  }
  using CommonCthread::name;
  using CommonCthread::stopLock;
  using CommonCthread::tid;

  std::atomic<int> runs{0};
  std::atomic<int> ended{0};
  std::atomic<bool> leave{false};
};

void* stop_from_inside(void* arg)
{
  static_cast<Body*>(arg)->Stop();
  static_cast<Body*>(arg)->ended++;
  return nullptr;
}

void wait_for(const std::atomic<int>& counter, int value)
{
  while (counter < value)
    usleep(50);
}

} // namespace

TEST(CommonCthread, StartsOnceStopsAndStartsAgain)
{
  Body body;
  CaptureStdout();
  EXPECT_EQ(body.Stop(), 0); // idle: silent
  EXPECT_EQ(body.Start(std::string(70, 'x').c_str()), 0);
  EXPECT_EQ(body.name, std::string(63, 'x'));
  wait_for(body.runs, 1);
  const std::string tid = std::to_string(static_cast<int>(body.tid));
  body.SetStatus(2);
  EXPECT_EQ(body.Start("second"), 0);
  EXPECT_EQ(body.GetStatus(), 1);
  EXPECT_EQ(body.Stop(), 0);
  EXPECT_TRUE(body.idle());
  EXPECT_EQ(body.Start(nullptr), 0);
  wait_for(body.runs, 2);
  EXPECT_EQ(body.Stop(), 0);
  EXPECT_EQ(body.Start(nullptr, nullptr, "no body"), -1);
  EXPECT_TRUE(body.idle());
  EXPECT_EQ(GetCapturedStdout(), "thread alread running, pid=0, tid=" + tid + ", name=second\n" +
                                     "thread stop ok, mothed=join able\nthread stop ok, mothed=join able\n");

  body.SetStatus(5);
  body.Stop();
  EXPECT_EQ(body.GetStatus(), 0) << "unlike a worker handle, an idle object has its status cleared";
}

TEST(CommonCthread, TheDefaultBodyCounts)
{
  CaptureStdout();
  CommonCthread plain;
  plain.Start("plain");
  usleep(100000); // into the first sleep
  plain.Stop();
  EXPECT_EQ(GetCapturedStdout(),
            "thread init\nthread count 0\nthread uninit\nthread stop ok, mothed=join able\n");
}

TEST(CommonCthread, ALosingStopWaitsForTheStatusAndALosingExitLeavesAtOnce)
{
  Body body;
  body.Start("held");
  body.stopLock.Lock();
  body.ExitSelf();
  EXPECT_FALSE(body.idle());
  CaptureStdout();
  std::thread clearer(
      [&]
      {
        usleep(150000);
        body.SetStatus(0);
      });
  EXPECT_EQ(body.Stop(), 0);
  EXPECT_EQ(body.Stop(), 0); // status is 0 already: nothing to wait for, nothing printed
  clearer.join();
  EXPECT_EQ(GetCapturedStdout(), "CommonCthread thread (held) stopping ...\n"
                                 "CommonCthread thread (held) stopping ...\n");
  body.stopLock.Unlock();
  body.Stop();
}

TEST(CommonCthread, StopAndExitMayRaceAndTheThreadMayStopItself)
{
  CaptureStdout();
  for (int round = 0; round < 200; ++round)
  {
    Body body;
    body.Start("race");
    std::thread second_stopper([&] { body.Stop(); });
    body.leave = round % 2 == 0;
    body.Stop();
    second_stopper.join();
    body.Stop();
    wait_for(body.ended, body.runs);
  }
  Body body;
  EXPECT_EQ(body.Start(stop_from_inside, &body, "self"), 0);
  wait_for(body.ended, 1);
  EXPECT_TRUE(body.idle());
  GetCapturedStdout();
}
