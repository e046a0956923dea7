#include "clock.h"

#include <ctime>

namespace
{

int64_t read_us(clockid_t clock)
{
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

} // namespace

int64_t monotonic_us()
{
  return read_us(CLOCK_MONOTONIC);
}

int64_t wall_clock_us()
{
  return read_us(CLOCK_REALTIME);
}

void nap_us(int64_t us)
{
  const timespec time = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
  nanosleep(&time, nullptr);
}
