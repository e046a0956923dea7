#include <devcomm/time_process.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

TEST(TimeText, WritesAndReadsTheSameText)
{
  setenv("TZ", "CST-8", 1);
  char text[20];
  EXPECT_EQ(strftime_r(text, 20, 1636000496), 19U);
  EXPECT_STREQ(text, "2021-11-04 12:34:56");
  EXPECT_EQ(strftime_r(text, 19, 1636000496), 0U);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(strftime_r(text, 0, 0) + strftime_r(nullptr, 20, 0), 0U);
  EXPECT_STREQ(strtime(sizeof(long) == 8 ? LONG_MAX : -1), sizeof(long) == 8 ? "" : "1970-01-01 07:59:59");
  testing::internal::CaptureStdout();
  printtime(1636000496);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[2021.11.04 12:34:56]");

  long t = 77;
  EXPECT_EQ(strptime_r(nullptr, &t), nullptr);
  EXPECT_EQ(t, 77);
  EXPECT_EQ(strptime_r("yesterday", &t), nullptr);
  EXPECT_STREQ(strptime_r("2021-11-04 12:34:56 and more", &t), " and more");
  EXPECT_EQ(t, 1636000496);
}

TEST(TimeText, ReadsDigitsWithDefaultsForWhatIsMissingOrWrong)
{
  // clang-format off
  const char* const cases[][2] = {
    {"202", "0/0/0 0:0:0"}, {"2021", "2021/1/1 0:0:0"}, {"20211", "2021/1/1 0:0:0"},
    {"2021123", "2021/12/1 0:0:0"}, {"20211315", "2021/1/15 0:0:0"}, {"20210231", "2021/2/31 0:0:0"},
    {"20211332 250000", "2021/1/1 0:0:0"}, {"18990101", "1900/1/1 0:0:0"}, {"20310101", "1900/1/1 0:0:0"},
    {"20300100 2", "2030/1/1 0:0:0"}, {"20211231 23", "2021/12/31 23:0:0"},
    {"20211231T23595", "2021/12/31 23:59:0"}, {"20211231/235958123", "2021/12/31 23:59:58"},
    {"20211231 246060", "2021/12/31 0:0:0"},
  };
  // clang-format on
  for (const auto& c : cases)
  {
    std::string text = c[0];
    const tm got = StrToTime(&text[0]);
    char fields[80];
    snprintf(fields, sizeof fields, "%d/%d/%d %d:%d:%d", got.tm_year, got.tm_mon, got.tm_mday, got.tm_hour,
             got.tm_min, got.tm_sec);
    EXPECT_STREQ(fields, c[1]) << text;
  }
  EXPECT_EQ(StrToTime(nullptr).tm_year, 0);
}
