#include "comm_net/icmp_packet.h"

#include "comm_net/deadline.h"

#include <devcomm/socket.h>

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kIpHeadSize = 20;
constexpr int kIpSource = 12;
constexpr int kIpDestination = 16;

/// Takes the next packet away if it is a request of this process to itself. @return whether it was
bool drop_own_request(int sock, int pid, in_addr host)
{
  pollfd entry{sock, POLLIN, 0};
  if (poll(&entry, 1, 0) < 1 || (entry.revents & POLLERR) != 0)
  {
    return false; // a look would take the error away, and receiving could wait for ever
  }
  char packet[128];
  const ssize_t got = recv(sock, packet, sizeof packet, MSG_PEEK | MSG_DONTWAIT);
  const EchoView echo = view_packet(packet, static_cast<int>(got));
  const bool own = got >= kIpHeadSize && echo.data != nullptr && echo.type == kEchoRequest &&
                   echo.identifier == static_cast<uint16_t>(pid) &&
                   (memcmp(packet + kIpDestination, &host, sizeof host) == 0 ||
                    memcmp(packet + kIpDestination, packet + kIpSource, sizeof host) == 0);
  if (own)
  {
    recv(sock, packet, sizeof packet, MSG_DONTWAIT);
  }
  return own;
}

} // namespace

uint16_t internet_checksum(const void* data, int len)
{
  const auto* bytes = static_cast<const char*>(data);
  uint32_t sum = 0;
  for (; bytes != nullptr && len > 0; len -= 2, bytes += 2)
  {
    uint16_t word = 0;
    memcpy(&word, bytes, len > 1 ? 2 : 1);
    sum += word;
  }
  sum = (sum >> 16) + (sum & 0xFFFF);
  sum += sum >> 16;
  return static_cast<uint16_t>(~sum);
}

int pack_request(char* buf, int pid, unsigned int seq)
{
  if (buf == nullptr)
  {
    return -1;
  }
  timeval now{};
  gettimeofday(&now, nullptr);
  EchoRequest request{};
  request.type = kEchoRequest;
  request.identifier = static_cast<uint16_t>(pid);
  request.sequence = static_cast<uint16_t>(seq);
  request.seconds = static_cast<int32_t>(now.tv_sec);
  request.microseconds = static_cast<int32_t>(now.tv_usec);
  request.checksum = internet_checksum(&request, sizeof request);
  memcpy(buf, &request, sizeof request);
  return sizeof request;
}

EchoView view_packet(const char* packet, int len)
{
  EchoView echo;
  if (packet == nullptr || len < 1)
  {
    return echo;
  }
  const int head = (packet[0] & 0x0F) * 4;
  if (len - head < kHeadSize)
  {
    return echo;
  }
  echo.data = packet + head;
  echo.len = len - head;
  echo.type = static_cast<uint8_t>(echo.data[offsetof(EchoRequest, type)]);
  memcpy(&echo.identifier, echo.data + offsetof(EchoRequest, identifier), sizeof echo.identifier);
  memcpy(&echo.sequence, echo.data + offsetof(EchoRequest, sequence), sizeof echo.sequence);
  return echo;
}

bool is_reply_to(const EchoView& echo, int pid)
{
  return echo.data != nullptr && echo.type == kEchoReply && echo.identifier == static_cast<uint16_t>(pid);
}

void subtract_time(timeval* out, const timeval* in)
{
  if (out == nullptr || in == nullptr)
  {
    return;
  }
  int64_t seconds = int64_t{out->tv_sec} - in->tv_sec; // 64 bits: the times may come from a packet
  int64_t microseconds = int64_t{out->tv_usec} - in->tv_usec;
  if (microseconds < 0)
  {
    --seconds;
    microseconds += 1000000;
  }
  out->tv_sec = static_cast<decltype(out->tv_sec)>(seconds);
  out->tv_usec = static_cast<decltype(out->tv_usec)>(microseconds);
}

int find_host(const char* host, sockaddr_in* address)
{
  return net_make_addr(host, 0, address);
}

int open_raw_socket()
{
  const int sock = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
  if (sock != 0)
  {
    return sock;
  }
  const int moved = fcntl(sock, F_DUPFD_CLOEXEC, 1); // 0 stands for no socket
  close(sock);
  return moved;
}

int wait_for_packet(int sock, int pid, in_addr host, int timeoutMs)
{
  const Deadline deadline = Deadline::AfterMs(timeoutMs);
  int ready = 0;
  do
  {
    ready = wait_through_signals(sock, POLLIN, deadline);
  } while (ready > 0 && drop_own_request(sock, pid, host));
  return ready;
}
