#include "comm_gps/nmea_scan.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr int kCopySize = 256;

// Every power of ten up to 10^22 is exact in a double.
constexpr double kPowersOfTen[] = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,
                                   1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17};
constexpr uint64_t kExactLimit = uint64_t{1} << 53;

unsigned digit_of(char c)
{
  return static_cast<unsigned char>(c) - static_cast<unsigned>('0');
}

// The C library's functions need a terminator. len is 0 to 255.
struct TerminatedCopy
{
  TerminatedCopy(const char* s, int len)
  {
    memcpy(text, s, static_cast<size_t>(len));
    text[len] = '\0';
  }
  char text[kCopySize];
};

int integer_by_library(const char* s, int len, int radix)
{
  const TerminatedCopy copy(s, len);
  const long value = strtol(copy.text, nullptr, radix);
  return static_cast<int>(std::max<long>(INT_MIN, std::min<long>(INT_MAX, value)));
}

double real_by_library(const char* s, int len)
{
  const TerminatedCopy copy(s, len);
  return strtod(copy.text, nullptr);
}

} // namespace

// Nearly all fields of a sentence are a few plain digits; whatever else comes is the library's.
int nmea_integer(const char* s, int len, int radix)
{
  if (s == nullptr || len < 1 || len >= kCopySize)
    return 0;
  if (radix != 10 || len > 9)
    return integer_by_library(s, len, radix);
  unsigned value = 0;
  for (int i = 0; i < len; i++)
  {
    const unsigned digit = digit_of(s[i]);
    if (digit > 9)
      return integer_by_library(s, len, radix);
    value = value * 10 + digit;
  }
  return static_cast<int>(value);
}

// An exact whole number divided by an exact power of ten is rounded once, so the quotient has the bits
// that strtod gives.
double nmea_real(const char* s, int len)
{
  if (s == nullptr || len < 1 || len >= kCopySize)
    return 0.0;
  if (len > 18)
    return real_by_library(s, len);
  const bool negative = s[0] == '-';
  uint64_t digits = 0;
  int point = -1;
  for (int i = negative ? 1 : 0; i < len; i++)
  {
    const unsigned digit = digit_of(s[i]);
    if (digit <= 9)
      digits = digits * 10 + digit;
    else if (s[i] == '.' && point < 0)
      point = i;
    else
      return real_by_library(s, len);
  }
  const int decimals = point < 0 ? 0 : len - 1 - point;
  const int digit_count = len - (negative ? 1 : 0) - (point < 0 ? 0 : 1);
  if (digit_count == 0 || digits > kExactLimit)
    return real_by_library(s, len);
  const double value = static_cast<double>(static_cast<int64_t>(digits)) / kPowersOfTen[decimals];
  return negative ? -value : value;
}
