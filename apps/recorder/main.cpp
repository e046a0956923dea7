// The reference recorder: reads an H.264 byte stream and serves it live to any TCP viewer.

#include "media_input.h"
#include "media_source.h"
#include "options.h"
#include "video_server.h"

#include <devcomm/frame_buffer.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <ctime>

#include <unistd.h>

namespace
{

constexpr int kBufferBytes = 8 * static_cast<int>(kMaxFrameBytes);
constexpr int kDrainMs = 5000; // how long viewers may take to get the rest when the input has ended
constexpr int kStatusMs = 1000;

int64_t monotonic_ms()
{
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
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

void print_status(const MediaSource& source, const VideoServer& server)
{
  const uint64_t dropped = server.dropped() + source.dropped();
  printf("frames %u, key frames %u, viewers %d, bytes %" PRIu64 ", dropped %" PRIu64 "\n", source.frames(),
         source.key_frames(), server.viewers(), server.bytes(), dropped);
}

// Prints a status line a second until a signal, the time limit, or the end of the input.
void run(const MediaSource& source, const VideoServer& server, const sigset_t& signals, int seconds)
{
  const int64_t start = monotonic_ms();
  const int64_t end = seconds > 0 ? start + int64_t{seconds} * 1000 : INT64_MAX;
  int64_t nextStatus = start + kStatusMs;
  int64_t drained = INT64_MAX;
  for (int64_t now = start; now < end && now < drained; now = monotonic_ms())
  {
    if (now >= nextStatus)
    {
      print_status(source, server);
      nextStatus += kStatusMs * ((now - nextStatus) / kStatusMs + 1);
    }
    if (source.ended() && drained == INT64_MAX)
      drained = now + kDrainMs;
    if (source.ended() && (source.failed() || server.viewers() == 0))
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

  MediaInput input;
  if (!input.open(options.input))
    return 1;
  CCommBuffer frames(kBufferBytes, nullptr, nullptr);
  MediaSource source(input, frames);
  VideoServer server(frames, source);
  if (!server.start(options.port))
  {
    fprintf(stderr, "recorder: cannot listen on port %d\n", options.port);
    return 1;
  }
  printf("recorder: %s on port %d\n", input.name(), options.port);
  if (source.Start("media source") != 0)
  {
    fprintf(stderr, "recorder: cannot start the media source\n");
    server.stop();
    return 1;
  }

  run(source, server, signals, options.seconds);

  // Viewers first, then what feeds them; a connection that will not end keeps what it uses.
  const bool stopped = server.stop();
  source.Stop();
  print_status(source, server);
  if (!stopped)
    _exit(1);
  return source.failed() ? 1 : 0;
}
