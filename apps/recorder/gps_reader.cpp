#include "gps_reader.h"

#include "clock.h"
#include "dog.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <poll.h>

namespace
{

constexpr int kLineBytes = 256;        // NMEA 0183 allows 82
constexpr int kWaitUs = 200000;        // how soon a stop is noticed
constexpr int64_t kReopenUs = 1000000; // between two tries to open the line

// "$...*hh" with the right checksum.
bool checksum_holds(const char* line, int length)
{
  const auto* star = static_cast<const char*>(memchr(line, '*', static_cast<size_t>(length)));
  if (line[0] != '$' || star == nullptr || line + length - star < 3)
    return false;
  return nmea_calc_crc(line + 1, static_cast<int>(star - line) - 1) == nmea_atoi(star + 1, 2, 16);
}

// ddmm.mmmm in double precision: in single precision, as dm2Degree has it, steps would be metres wide.
double degrees(double dm)
{
  const double whole = trunc(dm / 100);
  return whole + (dm - whole * 100) / 60;
}

} // namespace

GpsReader::GpsReader(const GpsLine& line, Tracker& tracker) : line_(line), tracker_(tracker) {}

void* GpsReader::PthreadProc()
{
  const Dog dog("gps reader");
  while (GetStatus() != 0)
  {
    dog.feed();
    if (!open_ && !open_port())
    {
      nap_us(kReopenUs);
      continue;
    }
    char line[kLineBytes];
    int length = 0;
    if (port_.ReadComWithBuf(line, sizeof line, &length) > 0)
      take_line(line, length);
    else if (port_broken())
    {
      port_.CloseCom();
      open_ = false;
      tracker_.lost();
    }
    if (monotonic_us() - heardUs_ > kSilenceUs)
      tracker_.lost();
  }
  port_.CloseCom();
  return nullptr;
}

bool GpsReader::open_port()
{
  if (port_.OpenCom(const_cast<char*>(line_.device()), 0) != 0)
    return false;
  port_.SetSpeed(line_.baud());
  port_.SetMode();
  port_.SetSelectProp(0, kWaitUs, 0);
  open_ = true;
  return true;
}

// A read that brings no line may have met a pause, or a device that is gone.
bool GpsReader::port_broken()
{
  pollfd state = {port_.GetPortFD(), 0, 0};
  return poll(&state, 1, 0) > 0;
}

void GpsReader::take_line(const char* line, int length)
{
  if (!checksum_holds(line, length))
    return;
  heardUs_ = monotonic_us();
  _nmeaGPGGA gga;
  _nmeaGPGSA gsa;
  _nmeaGPGSV gsv;
  _nmeaGPRMC rmc;
  _nmeaGPVTG vtg;
  switch (nmea_pack_type(line, length))
  {
  case NMEA_GGA:
    if (nmea_parse_GPGGA(line, length, &gga) == 1)
      nmea_GPGGA2info(&gga, &info_);
    break;
  case NMEA_GSA:
    if (nmea_parse_GPGSA(line, length, &gsa) == 1)
      nmea_GPGSA2info(&gsa, &info_);
    break;
  case NMEA_GSV:
    if (nmea_parse_GPGSV(line, length, &gsv) == 1)
      nmea_GPGSV2info(&gsv, &info_);
    break;
  case NMEA_VTG:
    if (nmea_parse_GPVTG(line, length, &vtg) == 1)
      nmea_GPVTG2info(&vtg, &info_);
    break;
  case NMEA_RMC:
    if (nmea_parse_GPRMC(line, length, &rmc) == 1 && nmea_GPRMC2info(&rmc, &info_) == 1)
      hand_on(rmc);
    break;
  default:
    break;
  }
}

void GpsReader::hand_on(const _nmeaGPRMC& rmc)
{
  Position position;
  position.time = nmea_time_to(&info_.utc); // the process keeps its time in UTC
  if (rmc.status == 'A')
  {
    position.fix = std::max(info_.fix, 2);
    position.lat = degrees(info_.lat);
    position.lon = degrees(info_.lon);
    position.speed = info_.speed;
    position.course = info_.direction;
  }
  tracker_.moved(position);
}
