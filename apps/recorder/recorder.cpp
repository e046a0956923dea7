#include "recorder.h"

#include "disk_flush.h"

#include <cstdio>

namespace
{

constexpr int kBufferBytes = 8 * static_cast<int>(kMaxFrameBytes);
constexpr uint32_t kHistoryBytes = 16 * kMaxFrameBytes;

// @return good, after a line on standard error if it is not
bool must(bool good, const char* what, int port)
{
  if (!good)
    fprintf(stderr, "recorder: cannot %s %d\n", what, port);
  return good;
}

bool must(bool good, const char* what)
{
  if (!good)
    fprintf(stderr, "recorder: cannot %s\n", what);
  return good;
}

} // namespace

Recorder::Recorder(const Options& options)
    : options_(options), frames_(kBufferBytes, nullptr, nullptr), history_(kHistoryBytes)
{
  events_.subscribe(journal_); // before whoever announces an event that must not be lost
  events_.subscribe(printer_);
  events_.subscribe(clipMaker_);
  tracker_.subscribe(journal_);
  tracker_.subscribe(positionServer_);
}

bool Recorder::start()
{
  if (open() && start_parts())
    return true;
  stop();
  return false;
}

bool Recorder::open()
{
  return (options_.data == nullptr ||
          (folderLock_.take(options_.data) && journal_.open(options_.data) && outbox_.open(options_.data))) &&
         input_.open(options_.input) && gpsLine_.open(options_.gps, options_.gpsBaud, options_.gpsRate) &&
         (options_.ring == 0 || ringWriter_.open(options_.ring));
}

// What serves comes before what feeds it, so that a port that is taken is noticed first.
bool Recorder::start_parts()
{
  if (!must(videoServer_.start(options_.port), "listen on port", options_.port) ||
      !must(positionServer_.start(options_.gpsPort), "listen on port", options_.gpsPort))
    return false;
  printf("recorder: %s on port %d, position on port %d\n", input_.name(), options_.port, options_.gpsPort);
  return must(source_.Start("media source") == 0, "start the media source") &&
         must(options_.ring == 0 || ringWriter_.Start("ring writer") == 0, "start the ring writer") &&
         must(gpsReader_.Start("gps reader") == 0, "start the GPS reader") &&
         must(gpsLine_.start(), "start the GPS sender") &&
         must(controlServer_.start(options_.port), "listen for recorderctl") &&
         must(options_.announce == 0 || announcer_.start(options_.announce), "announce on port",
              options_.announce) &&
         must(!outbox_.is_open() || clipMaker_.Start("clip maker") == 0, "start the clip maker") &&
         must(options_.upload == nullptr || uploader_.start(options_.uploadTarget), "start the uploader");
}

// Whoever asks first, then viewers, then what feeds them.
bool Recorder::stop()
{
  videoServer_.ask_stop();
  positionServer_.ask_stop();
  controlServer_.stop();
  uploader_.SetStatus(0);
  const bool stopped = videoServer_.stop();
  ringWriter_.Stop();
  source_.Stop();
  gpsReader_.Stop();
  gpsLine_.stop();
  clipMaker_.Stop();
  const bool served = positionServer_.stop() && stopped;
  const bool allStopped = uploader_.stop() && served;
  journal_.close();
  if (options_.data != nullptr)
    flush_disk_of(options_.data);
  return allStopped;
}

void Recorder::tell_status()
{
  char line[512];
  status_.write(line, sizeof line);
  puts(line);
  announcer_.announce(line);
}
