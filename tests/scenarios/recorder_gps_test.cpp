// The recorder's position: from a receiver, through the tunnel and across the fences, to a TCP peer.

#ifdef DEVCOMM_RECORDER

#include "support/measure.h"
#include "support/recorder_tools.h"
#include "support/tcp_peer.h"

#include <devcomm/socket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

namespace
{

// A peer that takes the recorder's sentences apart.
class Navigator : public Peer
{
public:
  explicit Navigator(int port)
  {
    EXPECT_TRUE(Connect(port));
  }

  // The next sentence with that status, or the first one with another when the recorder sends no more.
  _nmeaGPRMC next(char status)
  {
    _nmeaGPRMC rmc = {};
    do
    {
      std::string line = ReceiveLine();
      if (line.empty())
        return {};
      EXPECT_EQ(nmea_calc_crc(line.data() + 1, static_cast<int>(line.size()) - 6),
                strtol(line.c_str() + line.size() - 4, nullptr, 16))
          << line;
      EXPECT_EQ(nmea_parse_GPRMC(line.data(), static_cast<int>(line.size()), &rmc), 1) << line;
    } while (rmc.status != status);
    return rmc;
  }
};

constexpr char kNoise[] = "\0$GPRMC,*\n$*\n*\n\n"; // with a zero at either end

// A receiver on a serial line, which the recorder finds under a name of its own; it says where it is, over and over,
// among noise and damaged sentences.
class FakeReceiver
{
public:
  FakeReceiver(const std::string& name, const std::string& place)
      : name_(name), line_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), place_(place)
  {
    EXPECT_EQ(grantpt(line_), 0);
    EXPECT_EQ(unlockpt(line_), 0);
    EXPECT_EQ(symlink(ptsname(line_), name.c_str()), 0);
    set_block_ctl(line_, 1);
    thread_ = std::thread([this] { talk(); });
  }

  ~FakeReceiver()
  {
    done_ = true;
    thread_.join();
    unlink(name_.c_str()); // before the terminal's number becomes somebody else's
    close(line_);
  }

private:
  void talk()
  {
    for (int second = 0; !done_; second = (second + 1) % 60)
    {
      const std::string time = "1011" + std::to_string(100 + second).substr(1);
      std::string damaged = sentence("GPRMC," + time + ",A,0100.0,N,00100.0,E,,,230326,,,A");
      damaged[20] ^= 1;
      const std::string text = std::string(kNoise, sizeof kNoise) + damaged +
                               sentence("GNRMC," + time + ",A," + place_ + ",022.4,084.4,230326,,,A");
      EXPECT_NE(write(line_, text.data(), text.size()), 0);
      usleep(50000);
    }
  }

  std::string name_;
  int line_;
  std::string place_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

} // namespace

TEST(RecorderGpsTest, TheSimulatedDriveCrossesBothFencesAndATunnel)
{
  const int port = free_port();
  RecorderProcess process(free_port(), {"--gps-rate=10"}, port);
  Navigator navigator(port);
  const _nmeaGPRMC in_town = navigator.next('A');
  EXPECT_NEAR(in_town.lat, 3603.6, 0.1);
  EXPECT_NEAR(in_town.lon, 12022.8, 0.1);
  EXPECT_NEAR(in_town.speed, 58.3, 0.1);
  _nmeaTIME now = {};
  nmea_time_now(&now);
  EXPECT_EQ(in_town.utc.year, now.year);

  std::string output;
  for (const char* event :
       {"enter: depot (36.0600", "leave: depot", "enter: harbour (36.060", "leave: harbour"})
  {
    const std::string more = process.read_until(1, event);
    EXPECT_EQ(more.find("event"), more.rfind("event")) << more; // none but this one
    EXPECT_NE(more.find(event), std::string::npos) << more;
    output += more;
  }
  EXPECT_NE(output.find("fix 3D, 36.06"), std::string::npos) << output;
  EXPECT_NE(output.find("108 km/h, fence harbour\n"), std::string::npos) << output;
  EXPECT_EQ(navigator.next('V').status, 'V');
  EXPECT_NE(process.read_until(1, "fix none, 36.06").find("fix none, 36.06"), std::string::npos);
  EXPECT_EQ(navigator.next('A').status, 'A');
}

TEST(RecorderGpsTest, AReceiverThatIsPulledOutCostsNothingAndIsFoundAgain)
{
  const std::string name = testing::TempDir() + "gps-line-" + std::to_string(getpid());
  const int port = free_port();
  auto receiver = std::make_unique<FakeReceiver>(name, "4807.03800,S,01131.00000,W");
  RecorderProcess process(free_port(), {"--gps", name}, port);
  Navigator navigator(port);
  _nmeaGPRMC rmc = navigator.next('A');
  EXPECT_EQ(std::make_tuple(rmc.lat, rmc.ns, rmc.lon, rmc.ew), std::make_tuple(4807.038, 'S', 1131.0, 'W'));
  EXPECT_EQ(std::make_tuple(rmc.utc.hour, rmc.utc.day, rmc.utc.mon), std::make_tuple(10, 23, 2));

  receiver.reset();
  EXPECT_NE(process.read_until(1, "fix none, -48.11730 -11.51667, ").find("fix none"), std::string::npos);
  const double before = cpu_seconds(process.pid());
  process.read_until(1, "fix none");
  process.read_until(1, "fix none");
  EXPECT_LT(cpu_seconds(process.pid()) - before, 1.0); // of two seconds

  receiver = std::make_unique<FakeReceiver>(name, "3400.00000,N,15100.00000,E");
  rmc = navigator.next('A');
  while (rmc.status == 'A' && rmc.ns == 'S')
    rmc = navigator.next('A');
  EXPECT_EQ(std::make_tuple(rmc.lat, rmc.ns, rmc.lon, rmc.ew), std::make_tuple(3400.0, 'N', 15100.0, 'E'));
}

#endif
