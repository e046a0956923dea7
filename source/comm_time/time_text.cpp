#include <devcomm/time_process.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

// The decimal number in count characters of a text, read as atoi reads it.
int number_at(const char* text, size_t count)
{
  char field[5] = {};
  memcpy(field, text, count);
  return atoi(field);
}

int in_range_or(int value, int first, int last, int otherwise)
{
  return value >= first && value <= last ? value : otherwise;
}

// A clock field is only checked upwards: "-5" stays minus five.
int below_or_zero(int value, int limit)
{
  return value < limit ? value : 0;
}

} // namespace

void printtime(long t)
{
  tm local = {};
  char text[64] = {};
  if (comm_localtime_r(&t, &local) != 0 && strftime(text, sizeof text, "[%Y.%m.%d %H:%M:%S]", &local) != 0)
  {
    printf("%s", text);
  }
}

size_t strftime_r(char* s, unsigned size, long t)
{
  if (s == nullptr || size == 0)
  {
    return 0;
  }
  tm local = {};
  const size_t length = comm_localtime_r(&t, &local) != 0 ? strftime(s, size, "%F %T", &local) : 0;
  if (length == 0)
  {
    s[0] = '\0'; // strftime leaves anything behind when the text does not fit
  }
  return length;
}

char* strptime_r(const char* s, long* t)
{
  if (s == nullptr || t == nullptr)
  {
    return nullptr;
  }
  tm local = {}; // daylight flag 0: the text is standard time
  char* end = strptime(s, "%F %T", &local);
  *t = static_cast<long>(mktime(&local)); // written for an unreadable text too; callers rely on the result
  return end;
}

char* strtime(long t)
{
  static char text[128];
  memset(text, 0, sizeof text);
  strftime_r(text, sizeof text, t);
  return text;
}

tm StrToTime(char* s)
{
  tm fields = {};
  const size_t length = s != nullptr ? strlen(s) : 0;
  if (length < 4)
  {
    return fields;
  }
  // Natural month and full year, unlike the C library's numbering.
  fields.tm_year = in_range_or(number_at(s, 4), 1900, 2030, 1900);
  fields.tm_mon = length >= 6 ? in_range_or(number_at(s + 4, 2), 1, 12, 1) : 1;
  fields.tm_mday = length >= 8 ? in_range_or(number_at(s + 6, 2), 1, 31, 1) : 1;
  if (length >= 11)
  {
    fields.tm_hour = below_or_zero(number_at(s + 9, 2), 24);
  }
  if (length >= 13)
  {
    fields.tm_min = below_or_zero(number_at(s + 11, 2), 60);
  }
  if (length >= 15)
  {
    fields.tm_sec = below_or_zero(number_at(s + 13, 2), 60);
  }
  return fields;
}
