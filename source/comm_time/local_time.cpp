#include <devcomm/time_process.h>

#include <climits>
#include <cstdint>

namespace
{

constexpr int kSecondsPerDay = 86400;

constexpr uint16_t kMonthStart[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

constexpr bool is_leap(int64_t year)
{
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int64_t floor_div(int64_t a, int64_t b)
{
  return a / b - (a % b < 0 ? 1 : 0);
}

// Leap days in all the years before the given one, counted from any fixed origin.
constexpr int64_t leap_days_before(int64_t year)
{
  return floor_div(year - 1, 4) - floor_div(year - 1, 100) + floor_div(year - 1, 400);
}

// Seconds east of Greenwich. tzset comes first because localtime_r alone need not notice a changed zone.
int64_t zone_offset(time_t t)
{
  tm local = {};
  tzset();
  return localtime_r(&t, &local) != nullptr ? local.tm_gmtoff : 0;
}

// Turns days since 1970 into days since the start of the year that is returned.
int64_t split_year(int64_t& days)
{
  int64_t year = 1970;
  while (days < 0 || days >= (is_leap(year) ? 366 : 365))
  {
    const int64_t guess = year + floor_div(days, 365);
    days -= (guess - year) * 365 + leap_days_before(guess) - leap_days_before(year);
    year = guess;
  }
  return year;
}

} // namespace

int comm_localtime_r(const long* t, tm* out)
{
  if (t == nullptr || out == nullptr)
  {
    return 0;
  }
  const int64_t value = *t;
  int64_t days = value / kSecondsPerDay;
  int64_t seconds = value % kSecondsPerDay + zone_offset(static_cast<time_t>(value));
  days += floor_div(seconds, kSecondsPerDay);
  seconds -= floor_div(seconds, kSecondsPerDay) * kSecondsPerDay;
  const int weekday = static_cast<int>(((days + 4) % 7 + 7) % 7);

  const int64_t year = split_year(days);
  if (year - 1900 < INT_MIN || year - 1900 > INT_MAX)
  {
    return 0;
  }
  const uint16_t* starts = kMonthStart[is_leap(year) ? 1 : 0];
  int month = 11;
  while (days < starts[month])
  {
    --month;
  }
  out->tm_sec = static_cast<int>(seconds % 60);
  out->tm_min = static_cast<int>(seconds % 3600 / 60);
  out->tm_hour = static_cast<int>(seconds / 3600);
  out->tm_mday = static_cast<int>(days) - starts[month] + 1;
  out->tm_mon = month;
  out->tm_year = static_cast<int>(year - 1900);
  out->tm_wday = weekday;
  out->tm_yday = static_cast<int>(days);
  return 1;
}

tm GetRealTime()
{
  const long now = static_cast<long>(time(nullptr));
  tm local = {};
  comm_localtime_r(&now, &local);
  local.tm_mon += 1;     // natural month, 1 to 12
  local.tm_year += 1900; // full year
  return local;
}

time_t mktime_ex(int year, int mon, int mday, int hour, int min, int sec)
{
  if (year < 1900)
  {
    return 0;
  }
  tm local = {}; // daylight flag 0: the fields are standard time
  local.tm_year = year - 1900;
  local.tm_mon = mon > INT_MIN ? mon - 1 : mon;
  local.tm_mday = mday;
  local.tm_hour = hour;
  local.tm_min = min;
  local.tm_sec = sec;
  return mktime(&local);
}
