#include <devcomm/watchdog.h>

#include "support/measure.h"

#include <array>
#include <atomic>
#include <ctime>
#include <thread>

namespace
{

constexpr int kAlwaysOverdue = -1;

int register_dog(std::string name, int timeout)
{
  return CCommDog::Instance()->RegisterDog(name.data(), timeout);
}

time_t wait_for_next_second()
{
  const time_t start = time(nullptr);
  while (time(nullptr) == start)
    usleep(1000);
  return time(nullptr);
}

} // namespace

TEST(Watchdog, WarnsThreeTimesThenReportsDeadUntilFed)
{
  CCommDog* dogs = CCommDog::Instance();
  const int late = register_dog(std::string(40, 'd'), kAlwaysOverdue);
  const int disabled = register_dog("disabled", kAlwaysOverdue);
  const int fed = dogs->RegisterDog(nullptr, 1000);
  EXPECT_EQ(disabled, late + 1);
  EXPECT_EQ(dogs->EnableDog(disabled, 0), 0);

  CaptureStdout();
  std::list<CHECK_DOG_INFO_S> dead;
  for (int pass = 0; pass < 3; ++pass)
    EXPECT_EQ(dogs->CheckDog(dead), 0);
  EXPECT_TRUE(dead.empty());
  EXPECT_EQ(dogs->CheckDog(dead), 1);
  EXPECT_EQ(dogs->CheckDog(), 1);
  const std::string text = GetCapturedStdout();
  ASSERT_EQ(dead.size(), 1u);
  EXPECT_EQ(dead.front().id, late);
  EXPECT_EQ(dead.front().name, std::string(31, 'd'));
  const std::string head = "dog[" + std::to_string(late) + ", " + std::string(31, 'd') + "] ";
  size_t at = 0;
  for (const char* state : {"May Be Dead", "May Be Dead", "May Be Dead", "Dead", "Dead"})
  {
    const std::string line = head + state + ": last time=";
    EXPECT_EQ(text.compare(at, line.size(), line), 0) << text;
    at = text.find('\n', at) + 1;
  }
  EXPECT_EQ(at, text.size());

  for (const int id : {late, disabled, fed})
  {
    EXPECT_EQ(dogs->DeregisterDog(id), 0);
    EXPECT_EQ(dogs->DeregisterDog(id), -1);
    EXPECT_EQ(dogs->FeedDog(id), -1);
    EXPECT_EQ(dogs->EnableDog(id, 1), -1);
  }
  EXPECT_EQ(dogs->CheckDog(dead), 0);
}

TEST(Watchdog, IsOverdueStrictlyAfterTheTimeout)
{
  CCommDog* dogs = CCommDog::Instance();
  const time_t start = wait_for_next_second();
  const int zero = register_dog("zero", 0);
  const int one = register_dog("one", 1);
  CaptureStdout();
  dogs->CheckDog();
  wait_for_next_second();
  dogs->CheckDog();
  dogs->FeedDog(zero);
  dogs->CheckDog();
  EXPECT_EQ(GetCapturedStdout(), "dog[" + std::to_string(zero) + ", zero] May Be Dead: last time=" +
                                     std::to_string(start) + ", nowtime=" + std::to_string(start + 1) + "\n");
  dogs->DeregisterDog(zero);
  dogs->DeregisterDog(one);
}

TEST(Watchdog, DogsComeAndGoWhileASupervisorChecks)
{
  std::array<std::thread, 4> watched;
  std::atomic<int> failures{0};
  std::atomic<size_t> left{watched.size()};
  for (std::thread& thread : watched)
  {
    thread = std::thread(
        [&]
        {
          for (int round = 0; round < 200; ++round)
          {
            const int id = register_dog("busy", 1000);
            failures += CCommDog::Instance()->FeedDog(id) != 0;
            failures += CCommDog::Instance()->DeregisterDog(id) != 0;
          }
          --left;
        });
  }
  while (left > 0)
    failures += CCommDog::Instance()->CheckDog();
  for (std::thread& thread : watched)
    thread.join();
  EXPECT_EQ(failures, 0);
}
