#include "comm_gps/nmea_number.h"

#include <devcomm/nmea.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace
{

constexpr char kTalkers[][3] = {"GP", "GN", "BD"};
constexpr char kKinds[][4] = {"RMC", "GSA", "GSV", "GGA", "VTG", "GLL", "ZDA"};

bool is_sentence(const char* s, int len)
{
  return s != nullptr && len >= 6 && s[0] == '$';
}

} // namespace

int nmea_pack_id(const char* s, int len)
{
  int talker = 0;
  if (!is_sentence(s, len))
    return NMEA_TALKER_UNKNOWN;
  while (talker < NMEA_TALKER_UNKNOWN && memcmp(s + 1, kTalkers[talker], 2) != 0)
    talker++;
  return talker;
}

int nmea_pack_type(const char* s, int len)
{
  int kind = 0;
  if (!is_sentence(s, len))
    return NMEA_KIND_UNKNOWN;
  while (kind < NMEA_KIND_UNKNOWN && memcmp(s + 3, kKinds[kind], 3) != 0)
    kind++;
  return kind;
}

int nmea_calc_crc(const char* s, int len)
{
  unsigned char crc = 0;
  for (int i = 0; s != nullptr && i < len; i++)
    crc ^= static_cast<unsigned char>(s[i]);
  return crc;
}

int nmea_atoi(const char* s, int len, int radix)
{
  return nmea_integer(s, len, radix);
}

double nmea_atof(const char* s, int len)
{
  return nmea_real(s, len);
}

int nmea_printf(char* buf, int size, const char* format, ...)
{
  if (buf == nullptr || format == nullptr || size < 1)
    return 0;
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(buf, static_cast<size_t>(size), format, args);
  va_end(args);

  // A sentence that fills the buffer already leaves no room to append to, and is refused below.
  long long total = n;
  if (n >= size)
    total = static_cast<long long>(size) + 1;
  else if (n >= 1)
    total += snprintf(buf + n, static_cast<size_t>(size - n), "*%02x\r\n",
                      static_cast<unsigned>(nmea_calc_crc(buf + 1, n - 1)));
  if (total < 0 || total > size)
  {
    memset(buf, ' ', static_cast<size_t>(size));
    return size;
  }
  return static_cast<int>(total);
}

int nmea_time_now(_nmeaTIME* t)
{
  return nmea_time_from(t, time(nullptr));
}

int nmea_time_from(_nmeaTIME* t, long when)
{
  if (t == nullptr)
    return 0;
  const time_t seconds = when;
  tm utc = {};
  *t = {};
  if (gmtime_r(&seconds, &utc) != nullptr)
    *t = {utc.tm_year, utc.tm_mon, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, 0};
  return 0;
}

long nmea_time_to(_nmeaTIME* t)
{
  if (t == nullptr)
    return -1;
  tm local = {};
  local.tm_year = t->year;
  local.tm_mon = t->mon;
  local.tm_mday = t->day;
  local.tm_hour = t->hour;
  local.tm_min = t->min;
  local.tm_sec = t->sec;
  local.tm_isdst = -1;
  return static_cast<long>(mktime(&local));
}

int _nmea_parse_time(const char* s, int len, _nmeaTIME* t)
{
  if (s == nullptr || t == nullptr)
    return -1;
  if (len == 6)
    return nmea_scanf(s, len, "%2d%2d%2d", &t->hour, &t->min, &t->sec) == 3 ? 0 : -1;
  if (len >= 8 && len <= 10)
    return nmea_scanf(s, len, "%2d%2d%2d.%d", &t->hour, &t->min, &t->sec, &t->hsec) == 4 ? 0 : -1;
  return -1;
}
