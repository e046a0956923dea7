#include "internal/assert_report.h"

#include <gtest/gtest.h>

#include <cerrno>

TEST(AssertReport, NamesLevelPlaceAndErrnoAndKeepsErrno)
{
  errno = ENOENT;
  testing::internal::CaptureStderr();
  assert_report(AssertLevel::Warning, "source/a.cpp", 12);
  assert_report(AssertLevel::Error, "source/b.cpp", 3);
  const int kept = errno;
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "  >WARNING, assert failed (source/a.cpp:12)\n  >errno : 2, No such file or directory\n\n"
            "  >ERROR, assert failed (source/b.cpp:3)\n  >errno : 2, No such file or directory\n\n");
  EXPECT_EQ(kept, ENOENT);
}
