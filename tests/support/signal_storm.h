#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>

/// Interrupts the thread that makes it a thousand times a second, with a handler that restarts no call.
/// One at a time.
class SignalStorm
{
public:
  SignalStorm()
  {
    struct sigaction action
    {
    };
    action.sa_handler = [](int)
    {
      ++count();
    };
    sigaction(SIGALRM, &action, &m_before);
    count() = 0;
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGALRM;
    const auto thread = static_cast<int>(syscall(SYS_gettid));
    memcpy(&event._sigev_un, &thread, sizeof thread); // sigev_notify_thread_id, which C libraries name or not
    timer_create(CLOCK_MONOTONIC, &event, &m_timer);
    const itimerspec everyMs{{0, 1000000}, {0, 1000000}};
    timer_settime(m_timer, 0, &everyMs, nullptr);
  }

  ~SignalStorm()
  {
    timer_delete(m_timer);
    sigaction(SIGALRM, &m_before, nullptr);
  }

  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;

  /// Signals handled so far.
  static std::atomic<int>& count()
  {
    static std::atomic<int> handled{0};
    return handled;
  }

private:
  timer_t m_timer{};
  struct sigaction m_before
  {
  };
};
