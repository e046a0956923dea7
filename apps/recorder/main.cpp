// The reference recorder: reads an H.264 byte stream and serves it live to any TCP viewer; reads a GPS receiver,
// serves the position, and tells of geofences entered and left.

#include "clock.h"
#include "options.h"
#include "recorder.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <unistd.h>

namespace
{

constexpr int kDrainMs = 5000; // how long viewers may take to get the rest when the input has ended
constexpr int kStatusMs = 1000;
constexpr int kWatchMs = 500;

int64_t monotonic_ms()
{
  return monotonic_us() / 1000;
}

sigset_t stop_signals()
{
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

// True when a stop was asked for within ms.
bool stop_requested(const sigset_t& signals, int64_t ms)
{
  const timespec limit = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
  return sigtimedwait(&signals, nullptr, &limit) > 0;
}

// Tells the status once a second and watches the threads until a signal, the time limit, or the end of the input.
void run(Recorder& recorder, const sigset_t& signals, int seconds)
{
  const int64_t start = monotonic_ms();
  const int64_t end = seconds > 0 ? start + int64_t{seconds} * 1000 : INT64_MAX;
  int64_t nextStatus = start + kStatusMs;
  int64_t nextWatch = start;
  int64_t drained = INT64_MAX;
  for (int64_t now = start; now < end && now < drained; now = monotonic_ms())
  {
    if (now >= nextWatch)
    {
      recorder.watch();
      nextWatch = now + kWatchMs;
    }
    if (now >= nextStatus)
    {
      recorder.tell_status();
      nextStatus += kStatusMs * ((now - nextStatus) / kStatusMs + 1);
    }
    if (recorder.ended() && drained == INT64_MAX)
      drained = now + kDrainMs;
    if (recorder.ended() && (recorder.failed() || recorder.viewers() == 0))
      return;
    const int64_t wake = std::min({nextStatus, end, drained, now + kStatusMs / 10});
    if (stop_requested(signals, std::max<int64_t>(wake - now, 0)))
      return;
  }
}

} // namespace

int main(int argc, char** argv)
{
  setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  if (!parse_options(argc, argv, options))
    return 2;
  if (options.help)
  {
    fputs(kUsage, stdout);
    return 0;
  }
  // Before any thread starts: all inherit it, so that stop signals wait for run() to take them.
  const sigset_t signals = stop_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // Receivers speak UTC; the library's local times, in event lines and sentences, are to be the same.
  setenv("TZ", "UTC0", 1);

  Recorder recorder(options);
  if (!recorder.start())
    return 1;
  run(recorder, signals, options.seconds);
  const bool stopped = recorder.stop();
  recorder.tell_status();
  const int status = recorder.failed() ? 1 : 0;
  if (!stopped)
    _exit(status); // a connection that will not end keeps what it uses; nothing is lost by it
  return status;
}
