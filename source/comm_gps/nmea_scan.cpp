#include "comm_gps/nmea_scan.h"

#include <devcomm/nmea.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace
{

// Where the token of a directive without a width ends. No follower means the end of the text.
const char* find_token_end(const char* at, const char* end, char letter, char follower)
{
  if ((letter == 'c' || letter == 'C') && (follower == '\0' || *at != follower))
    return at + 1;
  if (follower == '\0')
    return end;
  while (at < end && *at != follower)
    at++;
  return at;
}

// A width past the text's end ends the scan, so there is no need to tell larger ones apart.
int read_width(const char*& format)
{
  int width = 0;
  for (; *format >= '0' && *format <= '9'; format++)
    width = width > INT_MAX / 10 - 1 ? INT_MAX / 10 : width * 10 + (*format - '0');
  return width;
}

// Stores a token as its type letter says, nothing for an empty one or a null target. False for a letter
// that is no type.
bool store_token(char letter, const char* token, int len, size_t text_size, void* target)
{
  if (strchr("cCsSeEfgGdiuxXo", letter) == nullptr)
    return false;
  if (len == 0 || target == nullptr)
    return true;
  switch (letter)
  {
  case 'c':
  case 'C':
    *static_cast<char*>(target) = *token;
    break;
  case 's':
  case 'S':
  {
    const size_t kept = std::min(static_cast<size_t>(len), text_size - 1);
    memcpy(target, token, kept);
    static_cast<char*>(target)[kept] = '\0';
    break;
  }
  case 'd':
  case 'i':
  case 'u': // as the signed number of the same bits
    *static_cast<int*>(target) = nmea_integer(token, len, 10);
    break;
  case 'x':
  case 'X':
    *static_cast<int*>(target) = nmea_integer(token, len, 16);
    break;
  case 'o':
    *static_cast<int*>(target) = nmea_integer(token, len, 8);
    break;
  default:
    *static_cast<double*>(target) = nmea_real(token, len);
  }
  return true;
}

} // namespace

int nmea_scan_bounded(const char* buf, int len, const char* format, size_t text_size, va_list args)
{
  if (buf == nullptr || format == nullptr || len < 1)
    return 0;
  const char* at = buf;
  const char* const end = buf + len;
  int matched = 0;
  for (; *format != '\0' && at < end; format++)
  {
    if (*format != '%')
    {
      if (*format != '?' && *format != *at)
        break;
      at++;
      continue;
    }
    format++;
    const int width = read_width(format);
    const char letter = *format;
    if (letter == '\0' || width > end - at)
      break;
    const char* token_end = width > 0 ? at + width : find_token_end(at, end, letter, format[1]);
    matched++;
    // Every target is a pointer, and they all travel alike.
    if (!store_token(letter, at, static_cast<int>(token_end - at), text_size, va_arg(args, void*)))
      break;
    at = token_end;
  }
  return matched;
}

int nmea_scanf(const char* buf, int len, const char* format, ...)
{
  va_list args;
  va_start(args, format);
  const int matched = nmea_scan_bounded(buf, len, format, SIZE_MAX, args);
  va_end(args);
  return matched;
}
