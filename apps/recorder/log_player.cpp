#include "log_player.h"

#include "clock.h"

#include <devcomm/nmea.h>

#include <cerrno>
#include <cstring>

namespace
{

constexpr int64_t kDayMs = 86400000;
constexpr int64_t kLongestGapMs = 10000; // a longer one is passed over, and so is a step back

// Time of day in the first field of a GGA or RMC sentence; -1 for other lines.
int64_t time_of_day_ms(const char* line, int length)
{
  const int kind = nmea_pack_type(line, length);
  const auto* field = static_cast<const char*>(memchr(line, ',', static_cast<size_t>(length)));
  if ((kind != NMEA_GGA && kind != NMEA_RMC) || field == nullptr)
    return -1;
  ++field;
  const auto* end = static_cast<const char*>(memchr(field, ',', static_cast<size_t>(line + length - field)));
  _nmeaTIME t = {};
  if (end == nullptr || end - field < 6 || _nmea_parse_time(field, static_cast<int>(end - field), &t) != 0)
    return -1;
  int64_t ms = t.hsec;
  for (int64_t digits = end - field - 7; digits >= 1 && digits < 3; ++digits)
    ms *= 10;
  return ((t.hour * 60 + t.min) * 60 + t.sec) * int64_t{1000} + ms;
}

} // namespace

LogPlayer::~LogPlayer()
{
  if (log_ != nullptr)
    fclose(log_);
}

bool LogPlayer::open_log(const char* path)
{
  log_ = fopen(path, "re");
  if (log_ == nullptr)
    fprintf(stderr, "recorder: cannot open %s: %s\n", path, strerror(errno));
  return log_ != nullptr;
}

void LogPlayer::play()
{
  char line[512];
  dueUs_ = monotonic_us();
  while (GetStatus() != 0 && fgets(line, sizeof line, log_) != nullptr)
  {
    const auto length = static_cast<int>(strlen(line));
    wait_for_turn(line, length);
    send(line, length);
  }
}

void LogPlayer::wait_for_turn(const char* line, int length)
{
  const int64_t ms = time_of_day_ms(line, length);
  if (ms < 0)
    return;
  const int64_t gap = logMs_ < 0 ? 0 : (ms - logMs_ + kDayMs) % kDayMs;
  logMs_ = ms;
  if (gap > kLongestGapMs)
    return;
  dueUs_ += gap * 1000;
  sleep_until(dueUs_);
}
