#include "devcomm/socket.h"

#include "comm_server_client/socket_internal.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace
{

constexpr int kListenBacklog = 5;
constexpr int kMulticastHops = 2;

int open_socket(int type)
{
  return refuse_zero(socket(AF_INET, type | SOCK_CLOEXEC, 0));
}

bool set_option(int sock, int level, int option, int value)
{
  return setsockopt(sock, level, option, &value, sizeof value) == 0;
}

bool bind_wildcard(int sock, int port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  return bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool reuse_and_bind(int sock, int port)
{
  return set_option(sock, SOL_SOCKET, SO_REUSEADDR, 1) && bind_wildcard(sock, port);
}

bool limit_multicast(int sock)
{
  return set_option(sock, IPPROTO_IP, IP_MULTICAST_TTL, kMulticastHops) &&
         set_option(sock, IPPROTO_IP, IP_MULTICAST_LOOP, 0);
}

bool join_group(int sock, const char* group)
{
  ip_mreq membership{};
  membership.imr_multiaddr.s_addr = inet_addr(group);
  membership.imr_interface.s_addr = htonl(INADDR_ANY);
  return setsockopt(sock, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

/// Ends the opening of a bound socket: hands out its address, or closes it when a step failed.
int finish_bound(int sock, bool opened, sockaddr_in* out)
{
  sockaddr_in bound{};
  socklen_t boundLen = sizeof bound;
  if (!opened || getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &boundLen) != 0)
  {
    return close_failed(sock);
  }
  if (out != nullptr)
  {
    *out = bound;
  }
  return sock;
}

bool size_buffers(int sock, int rcvBuf, int sndBuf)
{
  if (rcvBuf > 0 && !set_option(sock, SOL_SOCKET, SO_RCVBUF, rcvBuf))
  {
    return false;
  }
  // The send buffer gets the receive size: sndBuf is only a switch, and callers rely on it.
  return sndBuf <= 0 || set_option(sock, SOL_SOCKET, SO_SNDBUF, rcvBuf);
}

/// connect() that a signal does not end: the kernel goes on connecting, so wait for its outcome.
bool connect_blocking(int sock, const sockaddr_in& peer)
{
  if (connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0)
  {
    return true;
  }
  if (errno != EINTR)
  {
    return false;
  }
  while (wait_writable(sock, INT32_MAX, OnSignal::Resume) == 0)
  {
  }
  return check_sock_err(sock) == 0;
}

bool connect_within(int sock, const sockaddr_in& peer, int timeoutMs)
{
  if (set_block_ctl(sock, 1) != 0)
  {
    return false;
  }
  // The outcome is not looked at: a refused connection is for check_sock_err to tell.
  (void)connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
  return wait_writable(sock, timeoutMs, OnSignal::Resume) > 0;
}

} // namespace

int net_udp_connect(const char* host, int port, sockaddr_in* out)
{
  sockaddr_in address{};
  if (port < 1 || net_make_addr(host, port, &address) != 0)
  {
    return -1;
  }
  const int sock = open_socket(SOCK_DGRAM);
  if (sock < 1)
  {
    return -1;
  }
  if (out != nullptr)
  {
    *out = address;
  }
  return sock;
}

int udp_unicast_init(int port, sockaddr_in* out)
{
  const int sock = open_socket(SOCK_DGRAM | SOCK_NONBLOCK);
  if (sock < 1)
  {
    return -1;
  }
  return port < 0 ? sock : finish_bound(sock, reuse_and_bind(sock, port), out);
}

int udp_broadcast_init(int port, sockaddr_in* out)
{
  const int sock = open_socket(SOCK_DGRAM | SOCK_NONBLOCK);
  if (sock < 1)
  {
    return -1;
  }
  const bool opened =
      set_option(sock, SOL_SOCKET, SO_BROADCAST, 1) && reuse_and_bind(sock, port) && limit_multicast(sock);
  return finish_bound(sock, opened, out);
}

int udp_multicast_init(const char* group, int port, sockaddr_in* out)
{
  if (group == nullptr)
  {
    errno = EINVAL;
    return -1;
  }
  const int sock = open_socket(SOCK_DGRAM | SOCK_NONBLOCK);
  if (sock < 1)
  {
    return -1;
  }
  const bool opened = reuse_and_bind(sock, port) && join_group(sock, group) && limit_multicast(sock);
  return finish_bound(sock, opened, out);
}

int tcp_listen(int port, sockaddr_in* out)
{
  const int sock = open_socket(SOCK_STREAM | SOCK_NONBLOCK);
  if (sock < 1)
  {
    return -1;
  }
  return finish_bound(sock, reuse_and_bind(sock, port) && listen(sock, kListenBacklog) == 0, out);
}

int tcp_connect(const char* host, int port, sockaddr_in* out, int timeoutMs, int rcvBuf, int sndBuf)
{
  sockaddr_in peer{};
  if (resolve_address(host, port, AF_INET, &peer, sizeof peer) != 0)
  {
    return -1;
  }
  const int sock = open_socket(SOCK_STREAM);
  if (sock < 1)
  {
    return -1;
  }
  const bool connected = size_buffers(sock, rcvBuf, sndBuf) &&
                         (timeoutMs < 0 ? connect_blocking(sock, peer) && set_block_ctl(sock, 1) == 0
                                        : connect_within(sock, peer, timeoutMs));
  if (!connected)
  {
    return close_failed(sock);
  }
  if (out != nullptr)
  {
    *out = peer;
  }
  return sock;
}
