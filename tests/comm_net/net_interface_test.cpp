#include <devcomm/net_interface.h>
#include <devcomm/socket.h>

#include "support/measure.h"
#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <cstring>

namespace
{

// eth0 and eth1 are the two ends of one cable, and so are wlan0 and fifteen-letters.
constexpr char kTwoCables[] = "ip link add eth0 type veth peer name eth1 &&"
                              "ip link add wlan0 type veth peer name fifteen-letters";

constexpr char kTail[] = "\t0\t0\t0\t00000000\t0\t0\t0\n"; // of a route's line, behind the flags

std::string output(const char* command)
{
  std::string text;
  char line[256];
  FILE* pipe = popen(command, "r");
  while (fgets(line, sizeof line, pipe) != nullptr)
    text += line;
  pclose(pipe);
  return text;
}

// Puts a text in the place of one of the kernel's.
void forge(const char* path, const std::string& text)
{
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

void configure_links()
{
  unsigned int value = 0;
  EXPECT_EQ(GetIpAddr("eth0", &value), -1) << "no address yet";
  EXPECT_EQ(SetIpAddr("eth0", 0x0A010203), 0);
  EXPECT_TRUE(GetNetmask("eth0", &value) == 0 && value == 0xFF000000) << "the class's";
  EXPECT_EQ(SetNetmask("eth0", 0xFFFFFF00), 0);
  EXPECT_TRUE(GetNetmask("eth0", &value) == 0 && value == 0xFFFFFF00);
  EXPECT_TRUE(GetIpAddr("eth0", &value) == 0 && value == 0x0A010203);
  EXPECT_NE(output("ip -4 addr show dev eth0").find("inet 10.1.2.3/24"), std::string::npos);
  EXPECT_EQ(CheckIPInRange("eth1", 0x0A0102C8), 0);
  EXPECT_EQ(CheckIPInRange("eth0", 0x0A0102C8), -1) << "its own address does not count";
  EXPECT_EQ(CheckIPInRange("eth1", 0x0A0103C8), -1);

  char mac[18];
  EXPECT_TRUE(run_shell("ip link set eth0 address 02:00:5e:ab:cd:ef"));
  EXPECT_EQ(GetMac("eth0", mac), 0);
  EXPECT_STREQ(mac, "02:00:5E:AB:CD:EF");

  EXPECT_EQ(GetInterfaceStatus("eth0"), -1) << "down: the carrier cannot be read";
  EXPECT_EQ(NetIfUp("eth0"), 0);
  EXPECT_EQ(GetInterfaceStatus("eth0"), 0) << "the other end is down";
  EXPECT_EQ(NetIfUp("eth1"), 0);
  EXPECT_TRUE(GetInterfaceStatus("eth0") == 1 && GetInterfaceStatus("eth1.7") == 1);
  EXPECT_EQ(GetInterfaceStatus("wlan1"), -1);
  EXPECT_EQ(NetIfUp("wlan0") + NetIfUp("fifteen-letters"), 0);
  EXPECT_EQ(GetInterfaceStatus("wlan1"), 1) << "that of wlan0";

  sockaddr_in all = {};
  IfrRtInfo_t sent = {};
  IfrRtInfo_t received = {};
  const int sock = udp_broadcast_init(0, nullptr);
  net_make_addr("10.1.2.255", 9, &all);
  EXPECT_EQ(udp_write(sock, std::string(100, 'x').c_str(), 100, reinterpret_cast<sockaddr*>(&all)), 100);
  EXPECT_EQ(GetIfrInfo("eth0", &sent) + GetIfrInfo("eth1", &received), 0);
  EXPECT_TRUE(sent.tx_packets == 1 && sent.tx_bytes == 142 && sent.rx_packets == 0);
  EXPECT_TRUE(received.rx_packets == 1 && received.tx_packets == 0);
  close(sock);

  CaptureStdout();
  EXPECT_EQ(NetIfDown("fifteen-letters!"), -1) << "not the interface of the first fifteen";
  GetCapturedStdout();
  EXPECT_EQ(GetInterfaceStatus("wlan0"), 1);
  EXPECT_TRUE(run_shell("ip link set eth0 promisc on"));
  EXPECT_EQ(NetIfDown("eth0"), 0);
  EXPECT_EQ(GetInterfaceStatus("eth1"), 0);
  EXPECT_NE(output("ip link show dev eth0").find("PROMISC> "), std::string::npos) << "other flags stay";
  for (const char* name : {"ppp0", "ra0", "eth", "", "fifteen-letters", static_cast<const char*>(nullptr)})
    EXPECT_EQ(GetInterfaceStatus(name), -1);
  EXPECT_TRUE(CheckNetIf("eth0") == 0 && CheckNetIf("fifteen-letters") == 0);
  EXPECT_TRUE(CheckNetIf("eth") != 0 && CheckNetIf("eth00") != 0 && CheckNetIf("") != 0);
}

void configure_routes()
{
  unsigned int gateway = 7;
  char name[16] = "";
  char text[16] = "";
  EXPECT_TRUE(run_shell("ip addr add 10.1.2.3/24 dev eth0; ip addr add 10.9.0.1/24 dev eth1;"
                        "ip link set eth0 up; ip link set eth1 up"));
  EXPECT_TRUE(GetGateway("eth0", &gateway) == 0 && gateway == 0);
  EXPECT_EQ(GetGatewayEx("eth0", &gateway), -1);
  EXPECT_EQ(GetDefaultGateway(name, text, &gateway), 0);
  char nowhere[] = "nowhere.invalid";
  char none[] = "default";
  char beyond[] = "10.77.0.1";
  char good[] = "10.1.2.254";
  CaptureStdout();
  EXPECT_EQ(SetRoute(nowhere) + SetRoute(none) + SetRoute(beyond), 0) << "a refusal is not told";
  EXPECT_EQ(GetCapturedStdout(),
            "resolving nowhere.invalid\nSIOC[ADD|DEL]RT\nSIOC[ADD|DEL]RT\nSIOC[ADD|DEL]RT\n");
  EXPECT_EQ(output("ip route show default"), "");

  EXPECT_EQ(SetRoute(good), 0);
  EXPECT_TRUE(
      run_shell("ip route add default via 10.1.2.253 metric 50 && ip route add default dev eth0 metric 60 &&"
                "ip route add default via 10.9.0.254 metric 70"));
  EXPECT_TRUE(GetGatewayEx("eth0", &gateway) == 0 && gateway == 0x0A0102FE) << "the first";
  EXPECT_TRUE(GetGateway("eth0", &gateway) == 0 && gateway == 0x0A0102FD) << "the last";
  EXPECT_TRUE(GetGateway("eth", &gateway) == 0 && gateway == 0);
  EXPECT_EQ(GetDefaultGateway(name, nullptr, &gateway), 1);
  EXPECT_TRUE(strcmp(name, "eth0") == 0 && gateway == 0);
  EXPECT_EQ(GetDefaultGateway(nullptr, text, &gateway), 1);
  EXPECT_TRUE(strcmp(text, "10.1.2.254") == 0 && gateway == 0x0A0102FE);

  CaptureStdout();
  EXPECT_EQ(SetGateway("eth0", 0x0A0102FC), 0);
  EXPECT_EQ(GetCapturedStdout(), "SetGateway : 10.1.2.252\n");
  EXPECT_EQ(output("ip route show default | sed 's/ *$//'"),
            "default via 10.1.2.252 dev eth0\ndefault dev eth0 scope link metric 60\n"
            "default via 10.9.0.254 dev eth1 metric 70\n")
      << "both routes of eth0 through gateways are gone";
  for (int metric = 71; metric < 78; metric++)
    EXPECT_TRUE(run_shell("ip route add default via 10.1.2.251 metric " + std::to_string(metric)));
  EXPECT_TRUE(
      run_shell("ip route del default via 10.9.0.254; ip route add default via 10.9.0.254 metric 99"));
  EXPECT_EQ(GetGatewayEx("eth1", &gateway), -1) << "past the tenth line";
  EXPECT_TRUE(GetGateway("eth1", &gateway) == 0 && gateway == 0x0A0900FE);
  EXPECT_EQ(DelRoute("eth0") + DelRoute("none"), 0);
  EXPECT_TRUE(GetDefaultGateway(name, text, &gateway) == 1 && strcmp(name, "eth1") == 0);

  // Through an IPv6 gateway, which the table shows as 0. To delete that would take the first default route.
  EXPECT_EQ(mount("none", "/proc/self/net", "tmpfs", 0, nullptr), 0);
  forge("/proc/net/route", std::string("eth0\t00000000\t00000000\t0003") + kTail);
  EXPECT_EQ(DelRoute("eth0"), 0);
  EXPECT_EQ(output("ip route show default | wc -l"), "2\n");
}

void read_odd_tables()
{
  ASSERT_EQ(mount("none", "/proc/self/net", "tmpfs", 0, nullptr), 0);
  unsigned int gateway = 7;
  CaptureStdout();
  EXPECT_TRUE(CheckNetIf("lo") == -1 && CheckIPInRange("lo", 1) == -1);
  EXPECT_EQ(GetCapturedStdout(), "open proc file error\nopen proc file error\n");
  EXPECT_TRUE(GetGateway("lo", &gateway) == -1 && DelRoute("lo") == -1 && GetGatewayEx("lo", &gateway) == -1);
  EXPECT_EQ(GetDefaultGateway(nullptr, nullptr, nullptr), -1);
  forge("/proc/net/dev", "Inter-|\n face |\n    lo: 1 2 777\n"
                         "  veth10:4294967301 2 3 4 5 6 7 8 9 10 11 12 13 14 15 18446744073709551615\n"
                         "fifteen-letters: 16\nno colon\n:\n" +
                             std::string(3000, 'x') + ": 1\n eth0:x" + std::string(1, '\0') + "\n eth9: 9");
  IfrRtInfo_t info;
  uint32_t counters[16];
  EXPECT_EQ(GetIfrInfo("eth1", &info), 0) << "a part of a name will do";
  EXPECT_STREQ(info.name, "  veth10");
  memcpy(counters, reinterpret_cast<char*>(&info) + 12, sizeof counters);
  EXPECT_TRUE(counters[0] == 5 && counters[15] == UINT32_MAX) << "the low 32 bits";
  for (uint32_t i = 1; i < 15; i++)
    EXPECT_EQ(counters[i], i + 1);
  EXPECT_TRUE(info.rx_multicast == 8 && info.tx_bytes == 9 && info.tx_colls == 14);
  EXPECT_EQ(GetIfrInfo("fifteen-letters", &info), 0);
  EXPECT_TRUE(strcmp(info.name, "fifteen-let") == 0 && info.rx_bytes == 16 && info.rx_packets == 0);
  EXPECT_EQ(GetIfrInfo("777", &info), -1) << "among the numbers only";
  EXPECT_TRUE(info.name[0] == '\0' && info.rx_bytes == 0);
  EXPECT_TRUE(GetIfrInfo("eth9", &info) == 0 && info.rx_bytes == 9);
  EXPECT_TRUE(GetIfrInfo("", &info) == -1 && GetIfrInfo(nullptr, &info) == -1 &&
              GetIfrInfo("lo", nullptr) == -1 && GetIfrInfo("face", &info) == -1);
  EXPECT_TRUE(CheckNetIf("veth10") == 0 && CheckNetIf("no colon") != 0);
  EXPECT_EQ(CheckIPInRange("eth1", 0x0A010203), -1);

  forge("/proc/net/route", "Iface\tDestination\n\n" + std::string(300, 'n') + kTail +
                               "eth0\t00000000\t0200010A\t0003" + kTail + "eth0\t00000000\t\n" +
                               "eth0\t00000000\t0100010A\t0013" + kTail + "eth0\t0000000A\t0100010A\t0003" +
                               kTail + "eth0");
  EXPECT_TRUE(GetGateway("eth0", &gateway) == 0 && gateway == 0x0A010002);
  forge("/proc/net/route", "");
  EXPECT_TRUE(GetGateway("eth0", &gateway) == 0 && gateway == 0);
}

} // namespace

TEST(NetInterface, SetsWhatTheKernelThenShows)
{
  in_network_namespace(kTwoCables, configure_links);
}

TEST(NetInterface, ReplacesTheDefaultRoutesOfOneInterface)
{
  in_network_namespace(kTwoCables, configure_routes);
}

TEST(NetInterface, ReadsCountersAndSurvivesOddTables)
{
  in_network_namespace(kTwoCables, read_odd_tables);
}

TEST(NetInterface, RefusesNullAndOverlongNames)
{
  unsigned int value = 7;
  char text[18];
  EXPECT_TRUE(GetIpAddr(nullptr, &value) == -2 && GetIpAddr("lo", nullptr) == -2 &&
              GetNetmask(nullptr, &value) == -2 && GetNetmask("lo", nullptr) == -2 &&
              SetIpAddr(nullptr, 1) == -2 && SetNetmask(nullptr, 1) == -2 && SetGateway(nullptr, 1) == -2 &&
              NetIfUp(nullptr) == -2 && NetIfDown(nullptr) == -2);
  EXPECT_TRUE(GetMac(nullptr, text) == -1 && GetMac("lo", nullptr) == -1 && CheckNetIf(nullptr) == -1 &&
              GetGateway(nullptr, &value) == -1 && GetGatewayEx("lo", nullptr) == -1 &&
              SetRoute(nullptr) == -1 && DelRoute(nullptr) == -1 && CheckIPInRange(nullptr, 1) == -1);
  const std::string overlong(5000, 'n');
  const char* name = overlong.c_str();
  CaptureStdout();
  EXPECT_TRUE(GetIpAddr(name, &value) == -1 && value == 7);
  EXPECT_EQ(SetIpAddr(name, 1) + SetNetmask(name, 1) + GetNetmask(name, &value), -3);
  EXPECT_EQ(NetIfUp(name) + NetIfDown(name), -2);
  EXPECT_EQ(GetCapturedStdout(), "SetIpAddr call ioctl failed(No such device)"
                                 "SetNetmask call ioctl failed(No such device)"
                                 "GetNetmask call ioctl failed(No such device)"
                                 "InterfaceUp call ioctl failed(No such device)"
                                 "InterfaceDown call ioctl failed(No such device)");
  CaptureStderr();
  EXPECT_EQ(GetMac(name, text), -1);
  EXPECT_EQ(GetCapturedStderr(), "ioctl: No such device\n");

  EXPECT_STREQ(IntIP2String(0xFF010203, text, 16), "255.1.2.3");
  EXPECT_EQ(IntIP2String(0xFF010203, text, 9), nullptr);
  EXPECT_TRUE(IntIP2String(1, nullptr, 16) == nullptr && IntIP2String(1, text, -1) == nullptr);
}
