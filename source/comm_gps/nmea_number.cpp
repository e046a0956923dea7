#include "comm_gps/nmea_number.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace
{

// The C library's functions need a terminator.
struct TerminatedCopy
{
  TerminatedCopy(const char* s, int len)
  {
    memcpy(text, s, static_cast<size_t>(len));
    text[len] = '\0';
  }
  char text[kNmeaNumberSize];
};

} // namespace

int nmea_integer_by_library(const char* s, int len, int radix)
{
  const TerminatedCopy copy(s, len);
  const long value = strtol(copy.text, nullptr, radix);
  return static_cast<int>(std::max<long>(INT_MIN, std::min<long>(INT_MAX, value)));
}

double nmea_real_by_library(const char* s, int len)
{
  const TerminatedCopy copy(s, len);
  return strtod(copy.text, nullptr);
}
