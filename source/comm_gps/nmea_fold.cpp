#include "internal/assert_report.h"

#include <devcomm/nmea.h>

#include <algorithm>

namespace
{

constexpr int kPlaces = 12;
constexpr double kKmhPerKnot = 1.852;

// Device logs are searched by the line numbers of these reports.
constexpr int kLineGga = 570;
constexpr int kLineGsa = 594;
constexpr int kLineGsv = 627;
constexpr int kLineRmc = 661;
constexpr int kLineVtg = 693;

bool is_null(const void* record, const void* info, int line)
{
  if (record != nullptr && info != nullptr)
    return false;
  assert_report(AssertLevel::Error, __FILE__, line);
  return true;
}

template <typename Record>
void fold_position(const Record& record, _nmeaINFO* info)
{
  info->lat = record.ns == 'N' ? record.lat : -record.lat;
  info->lon = record.ew == 'E' ? record.lon : -record.lon;
}

// Marks every place that holds the satellite and returns how many do.
int mark_in_use(_nmeaSATINFO& satellites, int prn)
{
  const int places = std::min(satellites.inview, kPlaces);
  int marked = 0;
  for (int i = 0; i < places; i++)
  {
    if (satellites.sat[i].id != prn)
      continue;
    satellites.sat[i].in_use = 1;
    marked++;
  }
  return marked;
}

} // namespace

int nmea_GPGGA2info(_nmeaGPGGA* p, _nmeaINFO* info)
{
  if (is_null(p, info, kLineGga))
    return 0;
  info->utc.hour = p->utc.hour;
  info->utc.min = p->utc.min;
  info->utc.sec = p->utc.sec;
  info->utc.hsec = p->utc.hsec;
  info->sig = p->sig;
  info->HDOP = p->HDOP;
  info->elv = p->elv;
  fold_position(*p, info);
  info->smask |= 1 << NMEA_GGA;
  return 1;
}

int nmea_GPGSA2info(_nmeaGPGSA* p, _nmeaINFO* info)
{
  if (is_null(p, info, kLineGsa))
    return 0;
  info->fix = p->fix_type;
  info->PDOP = p->PDOP;
  info->HDOP = p->HDOP;
  info->VDOP = p->VDOP;
  int in_use = 0;
  for (int prn : p->sat_prn)
  {
    if (prn != 0)
      in_use += mark_in_use(info->satinfo, prn);
  }
  info->satinfo.inuse = in_use;
  info->smask |= 1 << NMEA_GSA;
  return 1;
}

int nmea_GPGSV2info(_nmeaGPGSV* p, _nmeaINFO* info)
{
  if (is_null(p, info, kLineGsv))
    return 0;
  if (p->pack_index > p->pack_count || p->pack_index > 3)
    return 1;
  if (p->pack_index < 1)
    p->pack_index = 1; // in the record itself: callers print it
  info->satinfo.inview = p->sat_count;
  const int first = (p->pack_index - 1) * 4;
  const int last = std::min(first + 4, p->sat_count);
  for (int i = first; i < last; i++)
  {
    const _nmeaSATELLITE& from = p->sat_data[i - first];
    _nmeaSATELLITE& to = info->satinfo.sat[i];
    to = {from.id, to.in_use, from.elv, from.azimuth, from.sig};
  }
  info->smask |= 1 << NMEA_GSV;
  return 1;
}

int nmea_GPRMC2info(_nmeaGPRMC* p, _nmeaINFO* info)
{
  if (is_null(p, info, kLineRmc))
    return 0;
  if (p->status == 'A')
  {
    if (info->sig == 0)
      info->sig = 2;
    if (info->fix == 1)
      info->fix = 2;
  }
  else if (p->status == 'V')
  {
    info->sig = 0;
    info->fix = 1;
  }
  info->utc = p->utc;
  fold_position(*p, info);
  info->speed = p->speed * kKmhPerKnot;
  info->direction = p->direction;
  info->smask |= 1 << NMEA_RMC;
  return 1;
}

int nmea_GPVTG2info(_nmeaGPVTG* p, _nmeaINFO* info)
{
  if (is_null(p, info, kLineVtg))
    return 0;
  info->speed = p->spk;
  info->direction = p->dir;
  info->declination = p->dec;
  info->smask |= 1 << NMEA_VTG;
  return 1;
}
