#include "comm_net/deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

namespace
{

constexpr int64_t kMsPerSecond = 1000;
constexpr int64_t kNsPerMs = 1000000;

int64_t monotonic_ms(int64_t roundUpNs)
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kMsPerSecond + (now.tv_nsec + roundUpNs) / kNsPerMs;
}

} // namespace

Deadline::Deadline(int seconds) : m_atMs(monotonic_ms(kNsPerMs - 1) + seconds * kMsPerSecond) {}

int Deadline::LeftMs() const
{
  return static_cast<int>(std::clamp<int64_t>(m_atMs - monotonic_ms(0), 0, INT_MAX));
}

int wait_until(int fd, short events, const Deadline& deadline)
{
  for (;;)
  {
    pollfd entry{fd, events, 0};
    const int ready = fd < 0 ? 1 : poll(&entry, 1, deadline.LeftMs());
    if (fd < 0 || (ready > 0 && (entry.revents & POLLNVAL) != 0))
    {
      errno = EBADF;
      return -1;
    }
    if (ready != 0 || deadline.LeftMs() == 0)
    {
      return ready;
    }
  }
}

int wait_through_signals(int fd, short events, const Deadline& deadline)
{
  for (;;)
  {
    const int ready = wait_until(fd, events, deadline);
    if (ready >= 0 || errno != EINTR)
    {
      return ready;
    }
  }
}
