#include "comm_gps/nmea_scan.h"
#include "internal/assert_report.h"

#include <devcomm/nmea.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{

// The longest time of day that parses has ten characters; one that is cut here does not parse either.
constexpr size_t kTimeSize = 32;

// Device logs are searched by the line numbers of these reports.
constexpr int kLineGga = 373;
constexpr int kLineGsa = 408;
constexpr int kLineGsv = 439;
constexpr int kLineRmc = 482;
constexpr int kLineVtg = 533;

bool is_null(const void* text, const void* record, int line)
{
  if (text != nullptr && record != nullptr)
    return false;
  assert_report(AssertLevel::Error, __FILE__, line);
  return true;
}

// nmea_scanf whose %s targets have kTimeSize bytes.
int scan(const char* s, int len, const char* format, ...)
{
  va_list args;
  va_start(args, format);
  const int matched = nmea_scan_bounded(s, len, format, kTimeSize, args);
  va_end(args);
  return matched;
}

int parse_time(const char* text, _nmeaTIME* t)
{
  return _nmea_parse_time(text, static_cast<int>(strlen(text)), t);
}

} // namespace

int nmea_parse_GPGGA(const char* s, int len, _nmeaGPGGA* p)
{
  if (is_null(s, p, kLineGga))
    return 0;
  *p = {};
  char time_text[kTimeSize] = "";
  const int matched = scan(s, len, "$??GGA,%s,%f,%C,%f,%C,%d,%d,%f,%f,%C,%f,%C,%f,%d*", time_text, &p->lat,
                           &p->ns, &p->lon, &p->ew, &p->sig, &p->satinuse, &p->HDOP, &p->elv, &p->elv_units,
                           &p->diff, &p->diff_units, &p->dgps_age, &p->dgps_sid);
  if (matched != 14)
  {
    puts("GPGGA parse error!");
    return 0;
  }
  return parse_time(time_text, &p->utc) == 0 ? 1 : 0;
}

int nmea_parse_GPGSA(const char* s, int len, _nmeaGPGSA* p)
{
  if (is_null(s, p, kLineGsa))
    return 0;
  *p = {};
  int* prn = p->sat_prn;
  const int matched = scan(s, len, "$??GSA,%C,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%f,%f,%f*", &p->fix_mode,
                           &p->fix_type, prn, prn + 1, prn + 2, prn + 3, prn + 4, prn + 5, prn + 6, prn + 7,
                           prn + 8, prn + 9, prn + 10, prn + 11, &p->PDOP, &p->HDOP, &p->VDOP);
  if (matched != 17)
  {
    puts("GPGSA parse error!");
    return 0;
  }
  return 1;
}

int nmea_parse_GPGSV(const char* s, int len, _nmeaGPGSV* p)
{
  if (is_null(s, p, kLineGsv))
    return 0;
  *p = {};
  _nmeaSATELLITE* sat = p->sat_data;
  const int matched = scan(s, len, "$??GSV,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d*",
                           &p->pack_count, &p->pack_index, &p->sat_count,         //
                           &sat[0].id, &sat[0].elv, &sat[0].azimuth, &sat[0].sig, //
                           &sat[1].id, &sat[1].elv, &sat[1].azimuth, &sat[1].sig, //
                           &sat[2].id, &sat[2].elv, &sat[2].azimuth, &sat[2].sig, //
                           &sat[3].id, &sat[3].elv, &sat[3].azimuth, &sat[3].sig);
  const int64_t before = (static_cast<int64_t>(p->pack_index) - 1) * 4;
  const int64_t expected = before + 3 < p->sat_count ? 19 : (p->sat_count - before) * 4 + 3;
  if (matched < expected || matched > 19)
  {
    puts("GPGSV parse error!");
    return 0;
  }
  return 1;
}

int nmea_parse_GPRMC(const char* s, int len, _nmeaGPRMC* p)
{
  if (is_null(s, p, kLineRmc))
    return 0;
  *p = {};
  char time_text[kTimeSize] = "";
  const int matched = scan(s, len, "$??RMC,%s,%C,%f,%C,%f,%C,%f,%f,%2d%2d%2d,%f,%C,%C*", time_text,
                           &p->status, &p->lat, &p->ns, &p->lon, &p->ew, &p->speed, &p->direction,
                           &p->utc.day, &p->utc.mon, &p->utc.year, &p->declination, &p->declin_ew, &p->mode);
  // The date may be the last field there is.
  if (matched <= 10)
  {
    printf("GPRMC parse error len=%d!\n", matched);
    return 0;
  }
  if (parse_time(time_text, &p->utc) != 0 && p->status == 'A')
  {
    puts("GPRMC time parse error!");
    return 0;
  }
  if (p->utc.year < 90)
    p->utc.year += 100;
  p->utc.mon--;
  return 1;
}

int nmea_parse_GPVTG(const char* s, int len, _nmeaGPVTG* p)
{
  if (is_null(s, p, kLineVtg))
    return 0;
  *p = {};
  const int matched = scan(s, len, "$??VTG,%f,%C,%f,%C,%f,%C,%f,%C*", &p->dir, &p->dir_t, &p->dec, &p->dec_m,
                           &p->spn, &p->spn_n, &p->spk, &p->spk_k);
  if (matched != 8)
  {
    puts("GPVTG parse error!");
    return 0;
  }
  return p->dir_t == 'T' && p->dec_m == 'M' && p->spn_n == 'N' && p->spk_k == 'K' ? 1 : 0;
}
