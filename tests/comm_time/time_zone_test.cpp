#include <devcomm/time_process.h>

#include "comm_time/child.h"
#include "support/net_namespace.h"

#include <gtest/gtest.h>

#include <climits>

TEST(TimeZone, WritesTheZoneFile)
{
  const std::string result = run_in_child(
      []
      {
        // An empty /etc that only this child sees.
        if (!enter_namespaces() || mount("none", "/etc", "tmpfs", 0, nullptr) != 0)
          return 77;
        int results = 0;
        for (const int hours : {8, -8, 12})
        {
          results += comm_setTZ(hours, 30);
          char text[64] = {};
          FILE* file = fopen("/etc/TZ", "r");
          const size_t length = file != nullptr ? fread(text, 1, sizeof text, file) : 0;
          printf("%zu:%s", length, text);
        }
        return results;
      });
  if (result == "77")
    GTEST_SKIP() << "no right to make a mount namespace with an /etc of its own";
  EXPECT_EQ(result, "---- set TZ:GMT-08:30\n ---\n10:GMT-08:30\n"
                    "---- set TZ:GMT+-8:30\n ---\n10:GMT+-8:30\n"
                    "---- set TZ:GMT-12:30\n ---\n10:GMT-12:30\n0");
}

TEST(TimeZone, AWrongValueLocksTheZoneForGood)
{
  const int wrong[][2] = {{13, 0}, {-13, 0}, {0, 60}, {0, -1}, {INT_MAX, 0}, {INT_MIN, 0}};
  for (const auto& zone : wrong)
  {
    EXPECT_EQ(run_in_child([&zone] { return comm_setTZ(zone[0], zone[1]) + comm_setTZ(8, 0) == -2; }),
              "---- TZ is set value is error(" + std::to_string(zone[0]) + ":" + std::to_string(zone[1]) +
                  ") ---\n---- TZ is setting ---\n1");
  }
}
