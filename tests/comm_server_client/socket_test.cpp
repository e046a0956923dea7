#include <devcomm/socket.h>

#include "support/measure.h"
#include "support/signal_storm.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <algorithm>
#include <thread>
#include <vector>

namespace
{

int port_of(const sockaddr_in& address)
{
  return ntohs(address.sin_port);
}

int option_of(int sock, int level, int option)
{
  int value = -1;
  socklen_t size = sizeof value;
  EXPECT_EQ(getsockopt(sock, level, option, &value, &size), 0);
  return value;
}

void close_all(const std::vector<int>& fds)
{
  std::for_each(fds.begin(), fds.end(), close);
}

/// select() itself, as the judge.
int real_select(int fd, bool write)
{
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  timeval none{};
  return select(fd + 1, write ? nullptr : &set, write ? &set : nullptr, nullptr, &none);
}

} // namespace

TEST(Socket, WaitsAnswerLikeSelectForEveryKindOfDescriptor)
{
  sockaddr_in listening{};
  int live[2];
  int halfGone[2];
  int readerGone[2];
  int pair[2];
  ASSERT_EQ(pipe(live) + pipe(halfGone) + pipe(readerGone) + socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  ASSERT_EQ(write(live[1], "x", 1), 1);
  close(halfGone[1]); // its reader hangs up: readable, not writable
  close(readerGone[0]);
  close(pair[1]);
  close(tcp_listen(0, &listening));
  const int refused = tcp_connect("127.0.0.1", port_of(listening), nullptr, 1000, 0, 0);
  const int listener = tcp_listen(0, &listening);
  const int connected = tcp_connect("127.0.0.1", port_of(listening), nullptr, 1000, 0, 0);
  const int idle = socket(AF_INET, SOCK_STREAM, 0);
  const int file = open("/proc/self/status", O_RDONLY);
  const int closed = lowest_free_fd();
  const std::vector<int> openOnes = {live[0], live[1],  halfGone[0], readerGone[1], pair[0],
                                     refused, listener, connected,   idle,          file};
  std::vector<int> fds = openOnes;
  fds.push_back(closed);
  for (int fd : fds)
  {
    SCOPED_TRACE(fd);
    EXPECT_EQ(select_read(fd, 0), real_select(fd, false));
    EXPECT_EQ(select_write(fd, 0), real_select(fd, true));
  }
  EXPECT_EQ(error_of([&] { return select_read(closed, 10); }), EBADF);

  // Above FD_SETSIZE, where a set has no place for them.
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  setrlimit(RLIMIT_NOFILE, &limit);
  const int high = fcntl(live[0], F_DUPFD, 3000);
  ASSERT_GE(high, 3000) << "needs RLIMIT_NOFILE of 3001";
  EXPECT_EQ(select_read(high, 0), 1);
  EXPECT_EQ(select_write(high, 0), 0);
  close(high);
  close_all(openOnes);
}

TEST(Socket, WaitsLastTheirTimeWithTheMillisecondsShrunkToMicroseconds)
{
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  EXPECT_LT(seconds_of([&] { EXPECT_EQ(select_read(fds[0], 999), 0); }), 0.5);
  const double long_wait = seconds_of([&] { EXPECT_EQ(select_read(fds[0], 1500), 0); });
  EXPECT_GE(long_wait, 1.0005);
  EXPECT_LT(long_wait, 1.4);

  // A hang-up alone is not writable: the wait goes on to its end, as in select().
  close(fds[1]);
  EXPECT_EQ(select_read(fds[0], 1000), 1);
  EXPECT_GE(seconds_of([&] { EXPECT_EQ(select_write(fds[0], 1000), 0); }), 1.0);

  for (int bad : {-1, -1000, -1500})
  {
    EXPECT_EQ(error_of([&] { return select_read(fds[0], bad); }), EINVAL);
    EXPECT_EQ(select_write(fds[0], bad), -1);
  }
  EXPECT_EQ(error_of([&] { return select_write(-1, 0); }), EBADF);
  close(fds[0]);
}

TEST(Socket, ASignalEndsAWaitButNotAConnect)
{
  SignalStorm storm;
  for (int timeoutMs : {20000, -1})
  {
    sockaddr_in address{};
    const int listener = tcp_listen(0, &address);
    ASSERT_GT(listener, 0);
    EXPECT_EQ(error_of([&] { return select_read(listener, 5000); }), EINTR);

    // With its backlog full the listener drops new SYNs: connecting takes until the next one, a second.
    std::vector<int> filling;
    for (int sock; (sock = tcp_connect("127.0.0.1", port_of(address), nullptr, 50, 0, 0)) > 0;)
    {
      filling.push_back(sock);
      ASSERT_LT(filling.size(), 100U);
    }
    const int before = SignalStorm::count();
    std::thread acceptor(
        [&]
        {
          while (SignalStorm::count() - before < 100)
            std::this_thread::yield();
          for (int sock; (sock = tcp_accept(listener, nullptr)) > 0;)
            close(sock);
        });
    const int client = tcp_connect("127.0.0.1", port_of(address), nullptr, timeoutMs, 0, 0);
    acceptor.join();
    EXPECT_GT(client, 0);
    EXPECT_EQ(check_sock_err(client), 0);
    EXPECT_GE(SignalStorm::count() - before, 100);
    filling.insert(filling.end(), {client, listener});
    close_all(filling);
  }
}

TEST(Socket, OpenedSocketsAreBoundAndSetAsPromised)
{
  sockaddr_in address{};
  const int unicast = udp_unicast_init(0, &address);
  ASSERT_GT(unicast, 0);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
  EXPECT_GT(port_of(address), 0);
  const int again = udp_unicast_init(port_of(address), nullptr);
  EXPECT_GT(again, 0) << "address reuse";
  const int broadcast = udp_broadcast_init(0, nullptr);
  EXPECT_EQ(option_of(broadcast, SOL_SOCKET, SO_BROADCAST), 1);
  EXPECT_EQ(option_of(broadcast, IPPROTO_IP, IP_MULTICAST_TTL), 2);
  EXPECT_EQ(option_of(broadcast, IPPROTO_IP, IP_MULTICAST_LOOP), 0);
  const int unbound = udp_unicast_init(-1, &address);
  EXPECT_EQ(option_of(unbound, SOL_SOCKET, SO_REUSEADDR), 0);
  const int listener = tcp_listen(0, &address);
  const std::vector<int> socks = {unicast, again, broadcast, unbound, listener};
  for (int sock : socks)
  {
    EXPECT_NE(fcntl(sock, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(sock, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(set_block_ctl(listener, 2), 0);
  EXPECT_EQ(fcntl(listener, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(set_block_ctl(-1, 1), -1);

  // Failures close what they opened and keep the errno of the failing step.
  const int free_fd = lowest_free_fd();
  EXPECT_EQ(error_of([&] { return tcp_listen(port_of(address), nullptr); }), EADDRINUSE);
  EXPECT_EQ(error_of([&] { return udp_multicast_init("10.0.0.1", 0, nullptr); }), EINVAL);
  EXPECT_EQ(udp_multicast_init(nullptr, 0, nullptr), -1);
  EXPECT_EQ(net_udp_connect("127.0.0.1", 0, nullptr), -1);
  EXPECT_EQ(lowest_free_fd(), free_fd);

  const int multicast = udp_multicast_init("239.1.2.3", 0, nullptr);
  if (multicast < 0 && errno == ENODEV)
    printf("no interface for multicast here: joining a group was not tried\n");
  else
    EXPECT_EQ(option_of(multicast, IPPROTO_IP, IP_MULTICAST_LOOP), 0);
  close(multicast);
  close_all(socks);
}

TEST(Socket, DescriptorZeroIsRefusedAndNotKept)
{
  const int kept = dup(0);
  close(0);
  EXPECT_EQ(udp_unicast_init(0, nullptr), -1);
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
  dup2(kept, 0);
  close(kept);
}

TEST(Socket, AddressesComeFromDottedTextAndNames)
{
  sockaddr_in address{};
  EXPECT_EQ(net_make_addr("10.1.2.3", 0x1234, &address), 0);
  const unsigned char* raw = reinterpret_cast<const unsigned char*>(&address);
  EXPECT_EQ(std::string(raw + 2, raw + 8), std::string("\x12\x34\x0a\x01\x02\x03", 6));
  EXPECT_EQ(net_make_addr("255.255.255.255", 1, &address), 0);
  EXPECT_EQ(address.sin_addr.s_addr, INADDR_NONE);
  EXPECT_EQ(net_make_addr("localhost", 1, nullptr), 0);
  EXPECT_EQ(net_make_addr(std::string(70, 'x').c_str(), 1, &address), -1); // too long for a label
  EXPECT_EQ(net_make_addr(nullptr, 1, &address), -1);

  sockaddr_storage any{};
  EXPECT_EQ(get_addr("::1", 80, &any), 0);
  EXPECT_EQ(any.ss_family, AF_INET6);
  EXPECT_EQ(get_addr("127.0.0.1", -1, &any), -1);
}

TEST(Socket, DatagramsCarryTextsWithTheirNul)
{
  sockaddr_in to{};
  const int receiver = udp_unicast_init(0, &to);
  const int sender = net_udp_connect("127.0.0.1", port_of(to), &to);
  ASSERT_GT(sender, 0);
  EXPECT_EQ(fcntl(sender, F_GETFL) & O_NONBLOCK, 0);
  auto* peer = reinterpret_cast<sockaddr*>(&to);
  char buf[16] = {};
  sockaddr_in from{};
  EXPECT_EQ(udp_write(sender, "hello", -1, peer), 6);
  EXPECT_EQ(select_read(receiver, 1000), 1);
  EXPECT_EQ(udp_read(receiver, buf, sizeof buf, &from), 6);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(udp_write(sender, "hello", 0, peer), -1); // sent, yet reported so
  EXPECT_EQ(udp_write(sender, nullptr, -1, peer), -1);
  EXPECT_EQ(select_read(receiver, 1000), 1);
  EXPECT_EQ(udp_read(receiver, buf, sizeof buf, nullptr), -1);
  EXPECT_EQ(select_read(receiver, 0), 0);
  close(sender);
  close(receiver);
}

TEST(Socket, StreamsConnectAndARefusalShowsLater)
{
  sockaddr_in address{};
  sockaddr_in peer{};
  const int listener = tcp_listen(0, &address);
  EXPECT_EQ(error_of([&] { return tcp_accept(listener, nullptr); }), EAGAIN);
  const int port = port_of(address);
  const int client = tcp_connect("localhost", port, &peer, -1, 20000, 1);
  ASSERT_GT(client, 0);
  EXPECT_NE(fcntl(client, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(option_of(client, SOL_SOCKET, SO_RCVBUF), 40000); // the kernel doubles
  EXPECT_EQ(option_of(client, SOL_SOCKET, SO_SNDBUF), 40000);
  ASSERT_EQ(select_read(listener, 1000), 1);
  const int server = tcp_accept(listener, &peer);
  ASSERT_GT(server, 0);
  EXPECT_NE(fcntl(server, F_GETFD) & FD_CLOEXEC, 0);

  const std::string fd = std::to_string(client);
  const std::string here = std::to_string(port_of(peer));
  const std::string there = std::to_string(port);
  EXPECT_EQ(get_sock_info(client), "[" + fd + "](127.0.0.1:" + here + ")<->(127.0.0.1:" + there + ")");
  const std::string word = htonl(1) == 1 ? "127.0.0.1(0x7f000001):" : "127.0.0.1(0x100007f):";
  char text[100];
  EXPECT_EQ(get_sock_info_ex(client, text, sizeof text), text);
  EXPECT_EQ(text, "[" + fd + "](" + word + here + ")<->(" + word + there + ")");
  EXPECT_EQ(get_sock_info(listener), "[" + std::to_string(listener) + "](0.0.0.0:" + there + ")<->(xxx:-1)");
  EXPECT_STREQ(get_sock_info(-1), "[-1](xxx:-1)<->(xxx:-1)");
  EXPECT_STREQ(get_sock_info_ex(-1, text, 8), "[-1](xx");

  close_all({server, client, listener});
  const int free_fd = lowest_free_fd();
  EXPECT_EQ(error_of([&] { return tcp_connect("127.0.0.1", port, nullptr, -1, 0, 0); }), ECONNREFUSED);
  EXPECT_EQ(lowest_free_fd(), free_fd);
  const int refused = tcp_connect("127.0.0.1", port, nullptr, 1000, 0, 0);
  ASSERT_GT(refused, 0);
  EXPECT_EQ(error_of([&] { return check_sock_err(refused); }), ECONNREFUSED);
  EXPECT_EQ(check_sock_err(refused), 0); // reading it cleared it
  close(refused);
}
