// Follows a recorder's stream through its shared-memory ring and writes it to a file.

#include "clock.h"
#include "command_line.h"
#include "ring_follower.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace
{

constexpr int64_t kPauseUs = 5000; // when there is no new frame

constexpr char kUsage[] =
    "Usage: recorder-tap --ring KEY [--reader N] [--seconds N] FILE\n"
    "\n"
    "Follows the stream of a recorder that was started with --ring KEY, and writes it to FILE.\n"
    "\n"
    "  --ring KEY   of the shared-memory ring\n"
    "  --reader N   a number for each process that follows the ring, 1 to 10 (default 1)\n"
    "  --seconds N  stop after N seconds (default: run until SIGINT or SIGTERM)\n"
    "  --help       print this and stop\n"
    "\n"
    "FILE is an H.264 byte stream that begins at a key frame; play it with: ffplay FILE\n";

volatile sig_atomic_t stopped = 0;

void stop_on_signals()
{
  struct sigaction action = {};
  action.sa_handler = [](int)
  {
    stopped = 1;
  };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

// @return exit status
int follow(RingFollower& ring, FILE* file, int seconds)
{
  const int64_t end = seconds > 0 ? monotonic_us() + int64_t{seconds} * 1000000 : INT64_MAX;
  uint32_t frames = 0;
  while (stopped == 0 && monotonic_us() < end)
  {
    const RingRecord* record = ring.next();
    if (record == nullptr)
      nap_us(kPauseUs);
    else if (fwrite(record->data, record->info.length, 1, file) == 1)
      ++frames;
    else
      break;
  }
  const bool good = ferror(file) == 0 && fflush(file) == 0;
  if (!good)
    fprintf(stderr, "recorder-tap: cannot write: %s\n", strerror(errno));
  printf("frames %u, gaps %u\n", frames, ring.gaps());
  return good ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
  int key = 0;
  int reader = 1;
  int seconds = 0;
  CommandLine line("recorder-tap");
  line.number("--ring", 1, INT_MAX, key);
  line.number("--reader", 1, 10, reader);
  line.number("--seconds", 1, INT_MAX, seconds);
  if (!line.parse(argc, argv, 1))
    return 2;
  if (line.help())
  {
    fputs(kUsage, stdout);
    return 0;
  }
  if (key == 0 || line.words().empty())
  {
    fputs("recorder-tap: needs --ring KEY and FILE (see --help)\n", stderr);
    return 2;
  }

  stop_on_signals();
  RingFollower ring(key, reader);
  if (!ring.start())
  {
    fprintf(stderr, "recorder-tap: cannot follow ring %d\n", key);
    return 1;
  }
  FILE* file = fopen(line.words()[0], "we");
  if (file == nullptr)
  {
    fprintf(stderr, "recorder-tap: cannot open %s: %s\n", line.words()[0], strerror(errno));
    return 1;
  }
  const int status = follow(ring, file, seconds);
  return fclose(file) == 0 ? status : 1;
}
