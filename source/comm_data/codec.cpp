#include <devcomm/codec.h>

#include "comm_data/frame_escape.h"

#include <devcomm/time_process.h>

#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace
{

const EscapeLoops& fastest_loops()
{
  static const EscapeLoops loops = escape_loops();
  return loops;
}

unsigned char to_bcd(unsigned int value)
{
  return static_cast<unsigned char>(value / 10 << 4 | value % 10);
}

int from_bcd(unsigned char byte)
{
  return (byte >> 4) * 10 + (byte & 0x0F);
}

tm local_time(long t)
{
  tm local = {};
  comm_localtime_r(&t, &local);
  return local;
}

} // namespace

int bb_encode(unsigned char* in, int n, unsigned char* out, int /*outSize*/)
{
  if (in == nullptr || out == nullptr || n < 0)
  {
    return 0;
  }
  out[0] = in[0];
  if (n < 3)
  {
    out[1] = in[1];
    return 2;
  }
  EscapeCursor at = fastest_loops().escape(in, n - 1, out, {1, 1});
  out[at.out++] = in[n - 1];
  return at.out;
}

int bb_decode(unsigned char* in, int n, unsigned char* out, int /*outSize*/)
{
  if (in == nullptr || out == nullptr || n < 0)
  {
    return 0;
  }
  out[0] = in[0];
  if (n < 3)
  {
    out[1] = in[1];
    return 2;
  }
  EscapeCursor at = fastest_loops().unescape(in, n - 1, out, {1, 1});
  if (at.in < n) // a pair at the very end has taken the flag
  {
    out[at.out++] = in[at.in];
  }
  return at.out;
}

unsigned char get_xor_crc_char(const char* p, int n)
{
  unsigned char crc = 0;
  for (int i = 0; p != nullptr && i < n; ++i)
  {
    crc = static_cast<unsigned char>(crc ^ static_cast<unsigned char>(p[i]));
  }
  return crc;
}

unsigned char get_xor_crc_uchar(unsigned char* p, int n)
{
  return get_xor_crc_char(reinterpret_cast<const char*>(p), n);
}

unsigned char calc_sum(unsigned char* p, int n)
{
  unsigned char sum = 0;
  for (int i = 0; p != nullptr && i < n; ++i)
  {
    sum = static_cast<unsigned char>(sum + p[i]);
  }
  return sum;
}

unsigned int calc_sum_u32(unsigned char* p, int n)
{
  unsigned int sum = 0;
  for (int i = 0; p != nullptr && i < n; ++i)
  {
    sum += p[i];
  }
  return sum;
}

int string2bcd(const char* s, unsigned char* out, int n)
{
  if (s == nullptr || out == nullptr || n <= 0)
  {
    return -1;
  }
  const size_t digits = 2 * static_cast<size_t>(n);
  const size_t length = strnlen(s, digits);
  const size_t padding = digits - length;
  char copy[356]; // so that out may be the text itself, for every n that callers keep to
  if (length <= sizeof copy)
  {
    memcpy(copy, s, length);
    s = copy;
  }
  memset(out, 0, static_cast<size_t>(n));
  for (size_t i = 0; i < length; ++i)
  {
    const size_t place = padding + i;
    const unsigned int half = static_cast<unsigned char>(s[i]) & 0x0FU;
    out[place / 2] = static_cast<unsigned char>(out[place / 2] | (place % 2 == 0 ? half << 4 : half));
  }
  return 0;
}

char* bcd2string(unsigned char* in, int n, char* out)
{
  if (in == nullptr || out == nullptr)
  {
    return nullptr;
  }
  char* end = out;
  for (int i = 0; i < n; ++i)
  {
    *end++ = static_cast<char>(in[i] >> 4 | 0x30);
    *end++ = static_cast<char>((in[i] & 0x0F) | 0x30);
  }
  if (n >= 0)
  {
    *end = '\0';
  }
  return out;
}

int time2bcd(long t, unsigned char* out)
{
  if (out == nullptr)
  {
    return -1;
  }
  const tm local = local_time(t);
  // Unsigned, so that years before 2000 wrap as callers know them.
  out[0] = to_bcd(static_cast<unsigned int>(local.tm_year) - 100);
  out[1] = to_bcd(static_cast<unsigned int>(local.tm_mon + 1));
  out[2] = to_bcd(static_cast<unsigned int>(local.tm_mday));
  out[3] = to_bcd(static_cast<unsigned int>(local.tm_hour));
  out[4] = to_bcd(static_cast<unsigned int>(local.tm_min));
  out[5] = to_bcd(static_cast<unsigned int>(local.tm_sec));
  return 0;
}

long bcd2time(unsigned char* in)
{
  if (in == nullptr)
  {
    return -1;
  }
  tm local = {};
  local.tm_year = from_bcd(in[0]) + 2000 - 1900;
  local.tm_mon = from_bcd(in[1]) - 1;
  local.tm_mday = from_bcd(in[2]);
  local.tm_hour = from_bcd(in[3]);
  local.tm_min = from_bcd(in[4]);
  local.tm_sec = from_bcd(in[5]);
  return static_cast<long>(mktime(&local));
}

int canbustime2bcd(unsigned char* out, int seconds)
{
  if (out == nullptr)
  {
    return -1;
  }
  timeval now = {};
  gettimeofday(&now, nullptr);
  const tm local = local_time(seconds != 0 ? seconds : static_cast<long>(now.tv_sec));
  const auto micros = static_cast<unsigned int>(now.tv_usec);
  out[0] = to_bcd(static_cast<unsigned int>(local.tm_hour));
  out[1] = to_bcd(static_cast<unsigned int>(local.tm_min));
  out[2] = to_bcd(static_cast<unsigned int>(local.tm_sec));
  out[3] = static_cast<unsigned char>(micros / 100000 % 10);
  out[4] = to_bcd(micros / 1000 % 100);
  return 0;
}

unsigned char hex2char(unsigned char v)
{
  return static_cast<unsigned char>("0123456789ABCDEF"[v & 0x0F]);
}

unsigned char char2hex(unsigned char c)
{
  if (c >= '0' && c <= '9')
  {
    return static_cast<unsigned char>(c - '0');
  }
  const int letter = c | 0x20; // lower case
  return letter >= 'a' && letter <= 'f' ? static_cast<unsigned char>(letter - 'a' + 10) : 0;
}

int hex2ascii(unsigned char* out, unsigned char* in, unsigned int n)
{
  if (out == nullptr || in == nullptr)
  {
    return 0;
  }
  for (unsigned int i = 0; i < n; ++i)
  {
    *out++ = hex2char(in[i] >> 4);
    *out++ = hex2char(in[i]);
  }
  return static_cast<int>(2 * n);
}

int ascii2hex(unsigned char* out, unsigned char* in, unsigned int n)
{
  if (out == nullptr || in == nullptr || n % 2 != 0)
  {
    return 0;
  }
  for (unsigned int i = 0; i < n / 2; ++i)
  {
    out[i] = static_cast<unsigned char>(char2hex(in[2 * i]) << 4 | char2hex(in[2 * i + 1]));
  }
  return static_cast<int>(n / 2);
}
