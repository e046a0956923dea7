// Reads NMEA sentences as a receiver sends them, keeps one summary, and prints where the receiver is.

#include <devcomm/coordinates.h>
#include <devcomm/nmea.h>

#include <cstdio>
#include <cstring>

namespace
{

void take(const char* line, _nmeaINFO* info)
{
  const int len = static_cast<int>(strlen(line));
  _nmeaGPGGA gga;
  _nmeaGPRMC rmc;
  switch (nmea_pack_type(line, len))
  {
  case NMEA_GGA:
    if (nmea_parse_GPGGA(line, len, &gga) == 1)
      nmea_GPGGA2info(&gga, info);
    break;
  case NMEA_RMC:
    if (nmea_parse_GPRMC(line, len, &rmc) == 1)
      nmea_GPRMC2info(&rmc, info);
    break;
  default:
    break; // GSA, GSV and VTG go the same way
  }
}

} // namespace

int main()
{
  _nmeaINFO info = {};
  take("$GPGGA,121252.000,3937.3032,N,11611.6046,E,1,05,2.0,45.9,M,-5.7,M,,0000*75\r\n", &info);
  take("$GNRMC,121253.000,A,3937.3040,N,11611.6061,E,25.0,238.3,010807,,,A*68\r\n", &info);

  const CCoordsCalculate coords;
  printf("%04d-%02d-%02d %02d:%02d:%02d  lat %.5f  lon %.5f  %.1f km/h  %.1f m\n", info.utc.year + 1900,
         info.utc.mon + 1, info.utc.day, info.utc.hour, info.utc.min, info.utc.sec,
         static_cast<double>(coords.dm2Degree(static_cast<float>(info.lat))),
         static_cast<double>(coords.dm2Degree(static_cast<float>(info.lon))), info.speed, info.elv);

  char sentence[64];
  const int len = nmea_printf(sentence, sizeof sentence, "$GPTXT,01,01,02,signal %d", info.sig);
  fwrite(sentence, 1, static_cast<size_t>(len), stdout);
  return info.smask == ((1 << NMEA_GGA) | (1 << NMEA_RMC)) ? 0 : 1;
}
