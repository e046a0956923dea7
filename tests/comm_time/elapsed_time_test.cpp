#include <devcomm/time_process.h>

#include <gtest/gtest.h>

TEST(ElapsedTime, CountsFromTheStampInItsUnit)
{
  const unsigned long long ms = msecdiff(0);
  const unsigned long long us = usecdiff(0);
  EXPECT_LE(us / 1000 - ms, 60000U);
  EXPECT_LE(static_cast<unsigned long long>(time(nullptr)) + 1 - ms / 1000, 60U); // time() may lag a tick
  EXPECT_EQ(delayus(20000), 0);
  EXPECT_TRUE(msecdiff(ms) >= 20 && msecdiff(ms) < 60000);
  EXPECT_TRUE(usecdiff(us) >= 20000 && usecdiff(us) < 60000000);
}
