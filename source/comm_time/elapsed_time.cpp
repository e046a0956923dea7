#include <devcomm/time_process.h>

#include <sys/time.h>

namespace
{

unsigned long long monotonic_us()
{
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000000ULL +
         static_cast<unsigned long long>(now.tv_nsec) / 1000ULL;
}

} // namespace

unsigned long long msecdiff(unsigned long long start)
{
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
         static_cast<unsigned long long>(now.tv_usec) / 1000ULL - start;
}

unsigned long long usecdiff(unsigned long long start)
{
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<unsigned long long>(now.tv_sec) * 1000000ULL +
         static_cast<unsigned long long>(now.tv_usec) - start;
}

int delayus(unsigned long long us)
{
  // The wall clock may be set meanwhile; only the monotonic one tells that the time has passed. Both ends are
  // cut to whole microseconds, so "more than" is what guarantees the full delay.
  const unsigned long long start = monotonic_us();
  timeval now = {};
  int result = gettimeofday(&now, nullptr);
  while (us != 0 && monotonic_us() - start <= us)
  {
    result = gettimeofday(&now, nullptr);
  }
  return result;
}
