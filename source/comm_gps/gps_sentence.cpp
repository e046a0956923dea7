#include <devcomm/gps.h>
#include <devcomm/nmea.h>
#include <devcomm/time_process.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace
{

constexpr size_t kValidSize = 127;

// A field of the application's byte-packed record, at whatever alignment.
template <typename T>
T field(const void* record, size_t position)
{
  T value;
  memcpy(&value, static_cast<const char*>(record) + position, sizeof value);
  return value;
}

} // namespace

int nmea_Combine(const char* head, long when, void* pos, char* out, float factor)
{
  if (pos == nullptr || out == nullptr)
    return -1;
  if (head == nullptr)
    head = "";
  tm local = {};
  comm_localtime_r(&when, &local);
  char time_text[48];
  char date_text[48];
  snprintf(time_text, sizeof time_text, "%02d%02d%02d.000", local.tm_hour, local.tm_min, local.tm_sec);
  snprintf(date_text, sizeof date_text, "%02d%02d%02d", local.tm_mday, local.tm_mon + 1, local.tm_year - 100);

  const auto speed = field<uint16_t>(pos, 2);
  int n = 0;
  if (field<char>(pos, 0) == 'A')
  {
    const float scaled = static_cast<float>(speed) * factor;
    n = snprintf(out, kValidSize, "$%s,%s,%c,%.5f,%c,%.5f,%c,%.2f,%.2f,%s,,,N*", head, time_text, 'A',
                 field<double>(pos, 28), field<char>(pos, 18), field<double>(pos, 36), field<char>(pos, 19),
                 static_cast<double>(scaled), static_cast<double>(field<uint16_t>(pos, 16)), date_text);
    // snprintf tells what it would have written.
    n = std::min(n, static_cast<int>(kValidSize) - 1);
  }
  else
  {
    // The bare speed, and no limit but the head's own length: receivers of void positions rely on both.
    n = sprintf(out, "$%s,%s,V,,,,,%.2f,00.0,%s,,,N*", head, time_text, static_cast<double>(speed),
                date_text);
  }
  if (n < 0)
    return -1;
  const unsigned checksum = n >= 3 ? static_cast<unsigned>(nmea_calc_crc(out + 1, n - 2)) : 0;
  return n + sprintf(out + n, "%02x\r\n", checksum);
}
