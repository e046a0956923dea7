#pragma once

#include <cstdint>

/// A moment some time from now, on the clock that nobody sets.
class Deadline
{
public:
  explicit Deadline(int seconds);
  static Deadline AfterMs(int milliseconds);

  /// Milliseconds left, rounded up, 0 when it has passed; never more than INT_MAX.
  int LeftMs() const;

private:
  int64_t m_atNs;
};

/// Waits for events of poll() on one descriptor; errors and hang-ups count as any event.
///
/// @return 1 ready, 0 the deadline has passed, -1 failed: EINTR (a signal came), EBADF (not open)
int wait_until(int fd, short events, const Deadline& deadline);

/// wait_until that goes on after a signal.
int wait_through_signals(int fd, short events, const Deadline& deadline);
