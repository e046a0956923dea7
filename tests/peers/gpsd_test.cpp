// The recorder's position beside a real GPS daemon, and its sentence parser behind that daemon's simulator.

#ifdef DEVCOMM_RECORDER

#include "support/recorder_tools.h"
#include "support/tcp_peer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace
{

// A drive for whole seconds of the day, every place of which follows from its second.
double lat_of(int second)
{
  return 48.1 + second * 0.0003;
}

double lon_of(int second)
{
  return -11.5 - second * 0.0004;
}

std::string dm(double degrees, int width)
{
  const double whole = floor(degrees);
  char text[32];
  snprintf(text, sizeof text, "%0*.0f%08.5f", width, whole, (degrees - whole) * 60);
  return text;
}

// Writes a receiver's log of that many seconds from 10:10:00, 2026-03-23 on. @return its path
std::string write_log(int seconds)
{
  const std::string path = testing::TempDir() + "drive-" + std::to_string(getpid()) + ".nmea";
  std::ofstream log(path);
  for (int second = 0; second < seconds; ++second)
  {
    char time[32];
    snprintf(time, sizeof time, "10%02d%02d.00", 10 + second / 60, second % 60);
    const std::string place = dm(lat_of(second), 2) + ",N," + dm(-lon_of(second), 3) + ",W,";
    log << sentence(std::string("GPGGA,") + time + "," + place + "1,08,0.9,545.4,M,46.9,M,,")
        << sentence("GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1")
        << sentence(std::string("GPRMC,") + time + ",A," + place + "022.40,084.00,230326,,,A");
  }
  return path;
}

double number_after(const std::string& json, const char* name)
{
  const size_t at = json.find(std::string("\"") + name + "\":");
  return at == std::string::npos ? NAN : strtod(json.c_str() + at + strlen(name) + 3, nullptr);
}

// The daemon would drop root's rights by itself, and with them the bond that ends it with the test; and its shared
// memory would stay.
std::vector<std::string> unprivileged(const std::vector<std::string>& program)
{
  std::vector<std::string> words;
  if (getuid() == 0 && system("unshare --ipc true 2>/dev/null") == 0)
    words = {"unshare", "--ipc"};
  if (getuid() == 0)
    words.insert(words.end(), {"setpriv", "--reuid=65534", "--clear-groups", "--pdeathsig=KILL"});
  words.insert(words.end(), program.begin(), program.end());
  return words;
}

// Plays a log on a pseudo-terminal, over and over, after it has told the terminal's name.
constexpr char kSimulator[] = R"(
import sys, gps.fake
line = gps.fake.FakePTY(gps.fake.TestLoad(sys.argv[1]), speed=9600)
print(line.byname, flush=True)
while True:
    line.feed()
)";

} // namespace

TEST(GpsdTest, TheDaemonReportsThePositionThatTheRecorderServes)
{
  if (system("command -v gpsd >/dev/null") != 0)
    GTEST_SKIP() << "gpsd is not installed";
  const std::string log = write_log(100);
  const int gpsPort = free_port();
  RecorderProcess process(free_port(), {"--gps", log}, gpsPort);
  const int port = free_port();
  Process daemon(unprivileged(
      {"gpsd", "-N", "-n", "-b", "-S", std::to_string(port), "tcp://127.0.0.1:" + std::to_string(gpsPort)}));
  Peer client;
  bool connected = false;
  ASSERT_TRUE(eventually([&] { return connected = connected || client.Connect(port); }));
  ASSERT_TRUE(client.Send("?WATCH={\"enable\":true,\"json\":true};\n"));

  int agreed = 0;
  while (agreed < 3)
  {
    const std::string line = client.ReceiveLine();
    ASSERT_NE(line, "");
    const size_t time = line.find("\"time\":\"2026-03-23T10:1");
    if (line.find("\"TPV\"") != std::string::npos && time != std::string::npos &&
        number_after(line, "mode") >= 2)
    {
      const int minute = atoi(line.c_str() + time + 22);
      const int second = minute * 60 + atoi(line.c_str() + time + 25) - 600;
      EXPECT_NEAR(number_after(line, "lat"), lat_of(second), 2e-6) << line;
      EXPECT_NEAR(number_after(line, "lon"), lon_of(second), 2e-6) << line;
      EXPECT_NEAR(number_after(line, "speed"), 22.4 * 1852 / 3600, 0.01) << line;
      EXPECT_NEAR(number_after(line, "track"), 84, 0.01) << line;
      ++agreed;
    }
  }
  unlink(log.c_str());
}

TEST(GpsdTest, ThePositionThatTheDaemonsSimulatorPlaysIsUnderstood)
{
  if (system("/usr/bin/python3 -c 'import gps.fake' 2>/dev/null") != 0)
    GTEST_SKIP() << "the Python module gps.fake (python3-gps) is not installed";
  const std::string log = write_log(30);
  Process simulator({"/usr/bin/python3", "-c", kSimulator, log});
  const std::string name = simulator.read_until(1, "\n");
  ASSERT_EQ(name.find("/dev/"), 0U) << simulator.read_until(2);
  const int gpsPort = free_port();
  RecorderProcess process(free_port(), {"--gps", name.substr(0, name.size() - 1)}, gpsPort);
  Peer client;
  ASSERT_TRUE(client.Connect(gpsPort));
  std::string lines;
  for (int i = 0; i < 40; ++i)
    lines += client.ReceiveLine();
  for (int second = 0; second < 30; ++second)
  {
    const std::string place =
        dm(lat_of(second), 2) + ",N," + dm(-lon_of(second), 3).substr(1) + ",W,22.40,84.00,230326,";
    EXPECT_NE(lines.find(place), std::string::npos) << place << lines;
  }
  unlink(log.c_str());
}

#endif
