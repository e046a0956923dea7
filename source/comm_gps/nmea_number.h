#pragma once

#include <cstdint>

// Numbers of sentences, of texts without a terminator. Nearly all are a few plain digits and are read here,
// in the scanner's loop; whatever else comes is the C library's.

/// Longer texts than this, less one for a terminator, are no number.
constexpr int kNmeaNumberSize = 256;

/// strtol of 1 to 255 bytes, cut to 32 bits.
int nmea_integer_by_library(const char* s, int len, int radix);

/// strtod of 1 to 255 bytes.
double nmea_real_by_library(const char* s, int len);

// Every power of ten up to 10^22 is exact in a double.
constexpr double kNmeaPowersOfTen[] = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,
                                       1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17};

inline unsigned nmea_digit(char c)
{
  return static_cast<unsigned char>(c) - static_cast<unsigned>('0');
}

/// See nmea_atoi.
inline int nmea_integer(const char* s, int len, int radix)
{
  if (s == nullptr || len < 1 || len >= kNmeaNumberSize)
    return 0;
  if (radix != 10 || len > 9)
    return nmea_integer_by_library(s, len, radix);
  unsigned value = 0;
  for (int i = 0; i < len; i++)
  {
    const unsigned digit = nmea_digit(s[i]);
    if (digit > 9)
      return nmea_integer_by_library(s, len, radix);
    value = value * 10 + digit;
  }
  return static_cast<int>(value);
}

/// See nmea_atof.
// An exact whole number divided by an exact power of ten is rounded once, so the quotient has the bits
// that strtod gives.
inline double nmea_real(const char* s, int len)
{
  if (s == nullptr || len < 1 || len >= kNmeaNumberSize)
    return 0.0;
  if (len > 18)
    return nmea_real_by_library(s, len);
  const bool negative = s[0] == '-';
  uint64_t digits = 0;
  int point = -1;
  for (int i = negative ? 1 : 0; i < len; i++)
  {
    const unsigned digit = nmea_digit(s[i]);
    if (digit <= 9)
      digits = digits * 10 + digit;
    else if (s[i] == '.' && point < 0)
      point = i;
    else
      return nmea_real_by_library(s, len);
  }
  const int decimals = point < 0 ? 0 : len - 1 - point;
  const int digit_count = len - (negative ? 1 : 0) - (point < 0 ? 0 : 1);
  if (digit_count == 0 || digits > (uint64_t{1} << 53))
    return nmea_real_by_library(s, len);
  const double value = static_cast<double>(static_cast<int64_t>(digits)) / kNmeaPowersOfTen[decimals];
  return negative ? -value : value;
}
