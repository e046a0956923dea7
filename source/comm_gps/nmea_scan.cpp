#include "comm_gps/nmea_scan.h"

#include "comm_gps/nmea_number.h"

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

void store_text(char* target, const char* token, int len, size_t text_size)
{
  const size_t kept = std::min(static_cast<size_t>(len), text_size - 1);
  memcpy(target, token, kept);
  target[kept] = '\0';
}

// Stores a token as its type letter says, nothing for an empty one or a null target. False for a letter
// that is no type.
bool store_token(char letter, const char* token, int len, size_t text_size, void* target)
{
  const bool stores = len > 0 && target != nullptr;
  switch (letter)
  {
  case 'd':
  case 'i':
  case 'u': // as the signed number of the same bits
    if (stores)
      *static_cast<int*>(target) = nmea_integer(token, len, 10);
    return true;
  case 'e':
  case 'E':
  case 'f':
  case 'g':
  case 'G':
    if (stores)
      *static_cast<double*>(target) = nmea_real(token, len);
    return true;
  case 'c':
  case 'C':
    if (stores)
      *static_cast<char*>(target) = *token;
    return true;
  case 's':
  case 'S':
    if (stores)
      store_text(static_cast<char*>(target), token, len, text_size);
    return true;
  case 'x':
  case 'X':
  case 'o':
    if (stores)
      *static_cast<int*>(target) = nmea_integer(token, len, letter == 'o' ? 8 : 16);
    return true;
  default:
    return false;
  }
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
