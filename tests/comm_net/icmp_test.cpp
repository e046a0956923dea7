#include <devcomm/icmp.h>

#include "support/measure.h"
#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace
{

using Packets = std::vector<std::string>;

/// Commands that put 10.9.0.1 on a veth pair whose other end has the hardware address of 10.9.0.2.
/// @param then  brings up the other end; done when packets pass
std::string cable(const std::string& then)
{
  return "ip link set lo up && ip link add name va type veth peer name vb && "
         "ip link set dev vb address 02:00:00:00:00:02 && ip addr add 10.9.0.1/24 dev va && "
         "ip link set dev va up && ip neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev va && " +
         then + " && until ip link show va | grep -v 'qdisc noop' | grep 'state UP'; do sleep 0.01; done";
}

/// The host at "vb", by a script: what comes back for each request, as whole IP packets.
class ScriptedHost
{
public:
  using Script = std::function<Packets(int number, const std::string& answer)>;

  explicit ScriptedHost(Script script) : m_script(std::move(script))
  {
    sockaddr_ll end{};
    end.sll_family = AF_PACKET;
    end.sll_protocol = htons(0x0800);
    end.sll_ifindex = static_cast<int>(if_nametoindex("vb"));
    EXPECT_EQ(bind(m_sock, reinterpret_cast<sockaddr*>(&end), sizeof end), 0);
    m_thread = std::thread([this] { Serve(); });
  }
  ~ScriptedHost()
  {
    m_ended = true;
    m_thread.join();
    close(m_sock);
  }
  std::atomic<int> requests{0};

private:
  static constexpr size_t kEther = 14;

  void Serve()
  {
    pollfd waiting{m_sock, POLLIN, 0};
    char frame[2048];
    while (!m_ended)
    {
      const ssize_t got = poll(&waiting, 1, 5) > 0 ? recv(m_sock, frame, sizeof frame, 0) : 0;
      if (got < 98 || frame[kEther + 20] != 8)
        continue;
      std::string ether(frame, kEther);
      std::swap_ranges(&ether[0], &ether[6], &ether[6]);
      std::string answer(frame + kEther, static_cast<size_t>(got) - kEther);
      std::swap_ranges(&answer[12], &answer[16], &answer[16]);
      answer[20] = 0;
      for (std::string packet : m_script(requests++, answer))
      {
        packet[2] = 0;
        packet[3] = static_cast<char>(packet.size());
        packet[10] = packet[11] = 0;
        unsigned short head[10];
        memcpy(head, packet.data(), sizeof head);
        head[5] = calculate_checksum(head, sizeof head);
        packet.replace(0, sizeof head, ether + std::string(reinterpret_cast<char*>(head), sizeof head));
        EXPECT_GT(send(m_sock, packet.data(), packet.size(), 0), 0);
      }
    }
  }

  Script m_script;
  int m_sock = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(0x0800));
  std::atomic<bool> m_ended{false};
  std::thread m_thread;
};

std::string with(std::string packet, size_t offset, int change)
{
  packet[offset] = static_cast<char>(packet[offset] ^ change);
  return packet;
}

/// A reply to this process with an IP header of the given words.
std::string reply(size_t headWords, size_t icmpBytes)
{
  char request[64];
  crate_icmp_packet(request, 7);
  request[0] = 0;
  std::string packet =
      std::string(1, static_cast<char>(0x40 + headWords)) + std::string(headWords * 4 - 1, 'h');
  return packet + std::string(request, icmpBytes);
}

/// Unpacks from memory that ends with the packet.
int unpack_exact(const std::string& packet, timeval* now, double* rttMs, unsigned int* out)
{
  std::vector<char> exact(packet.begin(), packet.end());
  return unpack(nullptr, exact.data(), static_cast<int>(exact.size()), now, rttMs, out);
}

constexpr size_t kIdentifier = 24;
constexpr size_t kSequence = 26;

void ask_real_hosts()
{
  CICMP icmp;
  for (const char* up : {"127.0.0.1", "127.0.0.2", "10.9.0.1", "10.9.0.2"})
  {
    SCOPED_TRACE(up);
    EXPECT_EQ(icmp.NetIsOk(up), 1);
    EXPECT_EQ(Ping(up, 3), 3);
  }
  EXPECT_TRUE(run_shell("ip -n far addr flush dev vb"));
  const double waited = seconds_of([] { EXPECT_EQ(Ping("10.9.0.2", 1), 0); });
  EXPECT_GE(waited, 1.2);
  EXPECT_LT(waited, 5);

  EXPECT_TRUE(run_shell("ip link set dev va down"));
  CaptureStdout();
  EXPECT_EQ(icmp.NetIsOk("10.9.0.2"), 0);
  EXPECT_EQ(GetCapturedStdout(), "[NetStatus]  error : sendto error\n[NetStatus]  error : send_packet\n");
  EXPECT_EQ(Ping("10.9.0.2", 1), -1);
  EXPECT_EQ(Ping("10.9.0.2", 0), 0);
}

void ask_scripted_hosts()
{
  using Text = const std::string&;
  const auto ask = [](int answered, double atLeast, double below, const ScriptedHost::Script& script)
  {
    ScriptedHost host(script);
    const double waited = seconds_of([&] { EXPECT_EQ(CICMP().NetIsOk("10.9.0.2"), answered); });
    EXPECT_LE(host.requests, 2);
    EXPECT_GE(waited, atLeast);
    EXPECT_LT(waited, below);
  };
  ask(1, 0, 1.9, [](int n, Text right) { return Packets{with(right, kIdentifier, n == 0)}; });
  // The right reply behind another packet comes too late for its attempt.
  ask(0, 0, 1.9, [](int, Text right) { return Packets{with(right, kSequence, 2), right}; });
  ask(1, 2, 3.9, [](int n, Text right) { return n == 0 ? Packets{} : Packets{right}; });

  const auto count = [](int requests, int sent, int got, const ScriptedHost::Script& script)
  {
    ScriptedHost host(script);
    EXPECT_EQ(Ping("10.9.0.2", requests), got);
    EXPECT_EQ(host.requests, sent);
  };
  const ScriptedHost::Script loyal = [](int, Text right)
  {
    return Packets{with(right, kSequence, 64)};
  };
  count(50, 10, 10, loyal); // whatever the request number
  count(0, 0, 0, loyal);
  count(4, 4, 2,
        [](int n, Text right) {
          return Packets{n == 0 ? with(right, kIdentifier, 1) : n == 1 ? with(right, 20, 3) : right};
        });
}

} // namespace

TEST(Icmp, PacketsHaveTheirLayoutAndGarbageIsRefused)
{
  CICMP icmp;
  alignas(8) char request[65] = {};
  request[64] = 'E';
  timeval before{};
  gettimeofday(&before, nullptr);
  EXPECT_EQ(icmp.pack(0x10203, request), 64);
  const auto* words = reinterpret_cast<unsigned short*>(request);
  const auto* stamp = reinterpret_cast<int32_t*>(request + 8);
  EXPECT_EQ(words[0], 8); // type and code
  EXPECT_EQ(words[2], getpid() & 0xFFFF);
  EXPECT_EQ(words[3], 0x0203);
  EXPECT_GE(stamp[0], static_cast<int32_t>(before.tv_sec));
  EXPECT_LE(stamp[0], static_cast<int32_t>(before.tv_sec) + 5);
  EXPECT_LT(stamp[1], 1000000);
  EXPECT_EQ(std::string(request + 16, 49), std::string(48, '\0') + 'E');
  EXPECT_EQ(icmp.cal_chksum(reinterpret_cast<unsigned short*>(request), 64), 0);
  unsigned short odd[] = {0xFFFF, 0x0203, 0x7F05};
  EXPECT_EQ(calculate_checksum(odd, 5), static_cast<unsigned short>(~0x0208));
  EXPECT_EQ(icmp.pack(0, nullptr), -1);

  std::string packet = reply(5, 64);
  const int32_t early[] = {static_cast<int32_t>(before.tv_sec) - 2, static_cast<int32_t>(before.tv_usec)};
  memcpy(&packet[28], early, sizeof early);
  before.tv_usec += before.tv_usec < 500 ? 999999 : -500; // 2.999999 or 1.9995 seconds
  double rttMs = -1;
  unsigned int sender = 0;
  EXPECT_EQ(unpack_exact(packet, &before, &rttMs, &sender), 0);
  EXPECT_EQ(static_cast<int>(rttMs) % 1000, 999);
  EXPECT_EQ(sender, 0x68686868U);
  EXPECT_EQ(icmp.unpack(7, &packet[0], static_cast<int>(packet.size())), 0);
  EXPECT_EQ(icmp.unpack(8, &packet[0], static_cast<int>(packet.size())), -1);

  EXPECT_EQ(unpack_exact(reply(15, 8), &before, &rttMs, &sender), 0); // too short for a time
  EXPECT_EQ(rttMs, 0);
  CaptureStdout();
  for (const std::string& bad : {reply(5, 7), reply(15, 0), std::string(1, 'O'), with(reply(5, 64), 20, 8),
                                 with(reply(5, 64), kIdentifier, 1), with(reply(5, 8), 0, 0x0A)})
  {
    EXPECT_EQ(unpack_exact(bad, &before, &rttMs, &sender), -1);
    EXPECT_EQ(icmp.unpack(7, const_cast<char*>(bad.data()), static_cast<int>(bad.size())), -1);
  }
  EXPECT_EQ(unpack(nullptr, nullptr, 100, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(GetCapturedStdout().rfind("recvfrom packet_size < 8!\n", 0), 0U);

  timeval late{5, 100};
  timeval early2{3, 200};
  icmp.tv_sub(&late, &early2);
  EXPECT_EQ(late.tv_sec, 1);
  EXPECT_EQ(late.tv_usec, 999900);
  icmp._CloseSocket(); // there is none: descriptor 0 stays
  EXPECT_GE(fcntl(0, F_GETFD), 0);
}

TEST(Icmp, TellsWhyItCannotAsk)
{
  CICMP icmp;
  const std::string nowhere(64, 'n'); // too long for a name, so nobody is asked
  CaptureStderr();
  EXPECT_EQ(icmp.NetIsOk(nowhere.c_str()), 0);
  EXPECT_EQ(Ping(nowhere.c_str(), 1), -1);
  EXPECT_EQ(icmp.NetIsOk(nullptr), 0);
  const std::string said = GetCapturedStderr();
  EXPECT_EQ(said.rfind("gethostbyname error: ", 0), 0U);
  EXPECT_NE(said.find("\ngethostbyname error.\n"), std::string::npos);

  const uid_t user = geteuid();
  if (user == 0 && seteuid(65534) != 0)
    GTEST_SKIP() << "cannot give up the right to raw sockets";
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(icmp.NetIsOk("127.0.0.1"), 0);
  EXPECT_EQ(Ping("127.0.0.1", 0), -1);
  EXPECT_EQ(GetCapturedStdout(), "[NetStatus]  error : socket\n");
  EXPECT_EQ(GetCapturedStderr(), "IPPROTO_ICMP socket:: Operation not permitted\n");
  EXPECT_EQ(seteuid(user), 0);
}

TEST(Icmp, HostsAnswerWhileTheyAreUp)
{
  in_network_namespace("mount -t tmpfs none /run && ip netns add far && " +
                           cable("ip link set dev vb netns far && ip -n far addr add 10.9.0.2/24 dev vb && "
                                 "ip -n far link set dev vb up"),
                       ask_real_hosts);
}

TEST(Icmp, OnlyTheRightReplyCountsAndAnyOtherPacketEndsTheAttempt)
{
  in_network_namespace(cable("ip link set dev vb up"), ask_scripted_hosts);
}
