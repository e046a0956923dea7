#include "comm_net/icmp_packet.h"

#include <devcomm/icmp.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kMostRequests = 10; // however many are asked for
constexpr int kReplyTimeoutMs = 1200;
constexpr size_t kMostPacket = 2048;
constexpr int kIpSource = 12;

bool reply_came(int sock, in_addr host)
{
  const int ready = wait_for_packet(sock, getpid(), host, kReplyTimeoutMs);
  if (ready < 0)
  {
    perror("select error.");
  }
  char packet[kMostPacket];
  int len = 0;
  double rttMs = 0;
  unsigned int sender = 0;
  return ready > 0 && recv_packet(sock, packet, &len, &rttMs, &sender) == 0;
}

} // namespace

int Ping(const char* host, int count)
{
  sockaddr_in address{};
  if (find_host(host, &address) != 0)
  {
    fputs("gethostbyname error.\n", stderr);
    return -1;
  }
  const int sock = open_raw_socket();
  if (sock < 0)
  {
    perror("IPPROTO_ICMP socket:");
    return -1;
  }
  int answered = 0;
  const int requests = std::min(count, kMostRequests);
  for (int seq = 1; seq <= requests; ++seq)
  {
    char request[sizeof(EchoRequest)];
    if (send_packet(sock, reinterpret_cast<sockaddr*>(&address), request, seq) != 0)
    {
      close(sock);
      return -1;
    }
    answered += reply_came(sock, address.sin_addr) ? 1 : 0;
  }
  close(sock);
  return answered;
}

int crate_icmp_packet(char* buf, unsigned int seq)
{
  return pack_request(buf, getpid(), seq);
}

int send_packet(int fd, sockaddr* to, char* buf, int seq)
{
  const int len = crate_icmp_packet(buf, static_cast<unsigned int>(seq));
  if (len < 0 || to == nullptr)
  {
    return -1;
  }
  ssize_t sent;
  do
  {
    sent = sendto(fd, buf, static_cast<size_t>(len), 0, to, sizeof(sockaddr_in));
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? -1 : 0;
}

int recv_packet(int fd, char* buf, int* len, double* rtt_ms, unsigned int* out)
{
  if (buf == nullptr)
  {
    return -1;
  }
  sockaddr_in from{};
  socklen_t fromLen = sizeof from;
  ssize_t got;
  do
  {
    got = recvfrom(fd, buf, kMostPacket, 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
  } while (got < 0 && errno == EINTR);
  if (got < 0)
  {
    puts("recvfrom return -1!");
    return -1;
  }
  timeval now{};
  gettimeofday(&now, nullptr);
  if (len != nullptr)
  {
    *len = static_cast<int>(got);
  }
  return unpack(&from, buf, static_cast<int>(got), &now, rtt_ms, out);
}

int unpack(sockaddr_in* /*from*/, char* buf, int len, timeval* now, double* rtt_ms, unsigned int* out)
{
  const EchoView echo = view_packet(buf, len);
  if (echo.data == nullptr)
  {
    puts("recvfrom packet_size < 8!");
    return -1;
  }
  if (!is_reply_to(echo, getpid()))
  {
    return -1;
  }
  if (rtt_ms != nullptr && now != nullptr)
  {
    *rtt_ms = 0;
    int32_t stamp[2];
    if (echo.len >= kHeadSize + static_cast<int>(sizeof stamp))
    {
      memcpy(stamp, echo.data + kHeadSize, sizeof stamp);
      timeval trip{static_cast<int32_t>(now->tv_sec), now->tv_usec}; // the stamp has 32 bits
      const timeval packed{stamp[0], stamp[1]};
      subtract_time(&trip, &packed);
      const int64_t wholeMs = int64_t{trip.tv_sec} * 1000 + trip.tv_usec / 1000;
      *rtt_ms = static_cast<double>(wholeMs);
    }
  }
  if (out != nullptr && echo.data - buf >= kIpSource + static_cast<int>(sizeof *out))
  {
    memcpy(out, buf + kIpSource, sizeof *out);
  }
  return 0;
}

void calculate_interval(timeval* out, timeval* in)
{
  subtract_time(out, in);
}

unsigned short calculate_checksum(unsigned short* buf, int len)
{
  return internet_checksum(buf, len);
}
