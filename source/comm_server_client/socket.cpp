#include "devcomm/socket.h"

#include "comm_server_client/socket_internal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace
{

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kNsPerUs = 1000;

int64_t monotonic_ns()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

/// The milliseconds below a second are waited as microseconds; callers rely on the short wait.
int64_t wait_ns(int timeoutMs)
{
  return timeoutMs / 1000 * kNsPerSecond + timeoutMs % 1000 * kNsPerUs;
}

int refuse(int error)
{
  errno = error;
  return -1;
}

/// The refusals of select(), in its order; 0 when it would wait.
int check_wait(int fd, int timeoutMs)
{
  if (timeoutMs < 0)
  {
    return refuse(EINVAL);
  }
  return fd < 0 ? refuse(EBADF) : 0;
}

int poll_one(pollfd& entry, int64_t ns)
{
  timespec limit{};
  limit.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
  limit.tv_nsec = static_cast<decltype(limit.tv_nsec)>(ns % kNsPerSecond);
  const int ready = ppoll(&entry, 1, &limit, nullptr);
  return ready > 0 && (entry.revents & POLLNVAL) != 0 ? refuse(EBADF) : ready;
}

} // namespace

int close_failed(int fd)
{
  const int error = errno;
  close(fd);
  return refuse(error);
}

int refuse_zero(int fd)
{
  if (fd == 0)
  {
    errno = EBADF;
    return close_failed(fd);
  }
  return fd;
}

int udp_write(int sock, const char* data, int len, sockaddr* to)
{
  if (data == nullptr)
  {
    return refuse(EINVAL);
  }
  const size_t count = len < 0 ? strlen(data) + 1 : static_cast<size_t>(len);
  const ssize_t sent = sendto(sock, data, count, MSG_NOSIGNAL, to, to == nullptr ? 0 : sizeof(sockaddr_in));
  return sent < 1 ? -1 : static_cast<int>(sent);
}

int udp_read(int sock, void* buf, unsigned int len, sockaddr_in* from)
{
  sockaddr_storage sender{};
  socklen_t senderLen = sizeof sender;
  const ssize_t got = recvfrom(sock, buf, len, 0, reinterpret_cast<sockaddr*>(&sender), &senderLen);
  if (got < 1)
  {
    return -1;
  }
  if (from != nullptr)
  {
    memcpy(from, &sender, sizeof *from);
  }
  return static_cast<int>(got);
}

int tcp_accept(int listenSock, sockaddr_in* peer)
{
  sockaddr_storage address{};
  socklen_t addressLen = sizeof address;
  const int sock =
      refuse_zero(accept4(listenSock, reinterpret_cast<sockaddr*>(&address), &addressLen, SOCK_CLOEXEC));
  if (sock < 1)
  {
    return -1;
  }
  if (peer != nullptr)
  {
    memcpy(peer, &address, sizeof *peer);
  }
  return sock;
}

int set_block_ctl(int fd, int mode)
{
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0)
  {
    return -1;
  }
  return fcntl(fd, F_SETFL, mode == 1 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

int check_sock_err(int sock)
{
  int error = 0;
  socklen_t errorLen = sizeof error;
  if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &errorLen) != 0)
  {
    return -1;
  }
  return error == 0 ? 0 : refuse(error);
}

int select_read(int fd, int timeoutMs)
{
  if (check_wait(fd, timeoutMs) != 0)
  {
    return -1;
  }
  // Whatever poll() reports beyond POLLIN (error, hang-up) is readable for select() too.
  pollfd entry{fd, POLLIN, 0};
  return poll_one(entry, wait_ns(timeoutMs));
}

int select_write(int fd, int timeoutMs)
{
  return wait_writable(fd, timeoutMs, OnSignal::Fail);
}

int wait_writable(int fd, int timeoutMs, OnSignal onSignal)
{
  if (check_wait(fd, timeoutMs) != 0)
  {
    return -1;
  }
  const int64_t deadline = monotonic_ns() + wait_ns(timeoutMs);
  pollfd entry{fd, POLLOUT, 0};
  int64_t left = wait_ns(timeoutMs);
  for (;;)
  {
    const int ready = poll_one(entry, left);
    if (ready > 0 && (entry.revents & (POLLOUT | POLLERR)) != 0)
    {
      return 1;
    }
    if (ready > 0)
    {
      // A hang-up alone is not writable for select(), which waits on; poll() would return at once for ever.
      entry.fd = -1;
    }
    else if (ready == 0 || errno != EINTR || onSignal == OnSignal::Fail)
    {
      return ready;
    }
    left = std::max<int64_t>(deadline - monotonic_ns(), 0);
  }
}
