#include <devcomm/time_process.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <string>

namespace
{

std::string text(const tm& fields)
{
  char all[80];
  strftime(all, sizeof all, "%Y-%m-%d %H:%M:%S, day %w, %j", &fields);
  return all;
}

} // namespace

TEST(LocalTime, AgreesWithTheCLibraryAndFollowsTheZone)
{
  std::mt19937_64 random(20211106);
  const long far = sizeof(long) == 8 ? static_cast<long>(60000000000000000LL) : LONG_MAX;
  for (const char* zone : {"UTC0", "NPT-5:45", "EST5EDT,M3.2.0,M11.1.0", "LINT-14", "AOE12"})
  {
    setenv("TZ", zone, 1);
    for (int i = 0; i < 4000; ++i)
    {
      const long range = i % 2 == 0 ? far : 2000000000L;
      const long t = i < 5 ? i - 2 : std::uniform_int_distribution<long>(-range, range)(random);
      tm got = {};
      got.tm_isdst = 7; // the caller's
      ASSERT_EQ(comm_localtime_r(&t, &got), 1);
      const time_t value = t;
      ASSERT_EQ(text(got), text(*localtime(&value))) << t << " in " << zone;
      ASSERT_EQ(got.tm_isdst, 7);
    }
  }
}

TEST(LocalTime, StopsWhereTheYearLeavesAnInt)
{
  setenv("TZ", "UTC0", 1);
  const bool wide = sizeof(long) == 8;
  tm out = {};
  const long last = wide ? static_cast<long>(67768036191676799LL) : LONG_MAX;
  EXPECT_EQ(comm_localtime_r(&last, &out), 1);
  EXPECT_EQ(out.tm_year, wide ? INT_MAX : 138);
  for (const long end : {wide ? last + 1 : LONG_MAX, LONG_MAX, LONG_MIN})
    EXPECT_EQ(comm_localtime_r(&end, &out), wide ? 0 : 1) << end;
  EXPECT_EQ(comm_localtime_r(nullptr, &out) + comm_localtime_r(&last, nullptr), 0);
}

TEST(LocalTime, NaturalNumberingGoesBothWays)
{
  setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
  EXPECT_EQ(mktime_ex(2021, 1, 15, 12, 0, 0), 1610730000);
  EXPECT_EQ(mktime_ex(2021, 7, 1, 12, 0, 0), 1625158800); // standard time in summer too
  EXPECT_EQ(mktime_ex(1899, 12, 31, 23, 59, 59), 0);
  setenv("TZ", "UTC0", 1);
  const time_t before = time(nullptr);
  const tm now = GetRealTime();
  const time_t back = mktime_ex(now.tm_year, now.tm_mon, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
  EXPECT_TRUE(back >= before && back <= time(nullptr)) << back;
}
