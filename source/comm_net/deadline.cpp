#include "comm_net/deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

namespace
{

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kNsPerMs = 1000000;

int64_t monotonic_ns()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

} // namespace

Deadline::Deadline(int seconds) : m_atNs(monotonic_ns() + seconds * kNsPerSecond) {}

Deadline Deadline::AfterMs(int milliseconds)
{
  Deadline deadline(0);
  deadline.m_atNs += milliseconds * kNsPerMs;
  return deadline;
}

int Deadline::LeftMs() const
{
  const int64_t leftNs = m_atNs - monotonic_ns();
  return static_cast<int>(std::clamp<int64_t>((leftNs + kNsPerMs - 1) / kNsPerMs, 0, INT_MAX));
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
