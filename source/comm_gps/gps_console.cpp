#include "internal/assert_report.h"

#include <devcomm/gps.h>
#include <devcomm/nmea.h>

#include <cstdio>
#include <cstring>

namespace
{

constexpr int kLineFailed = 781; // device logs are searched by it

constexpr char kRmc[] = "$GPRMC,010101.130,A,3606.6834,N,12021.7778,E,25.0,238.3,010807,,,";
constexpr char kGsv[] = "$GPGSV,3,3,10,29,07,074,,30,07,163,28*7D";
constexpr char kGsa[] = "$GPGSA,A,3,14,15,05,22,18,26,,,,,,,2.1,1.2,1.7*3D";

constexpr const char* kSamples[] = {
    "$GPGGA,121252.000,3937.3032,N,11611.6046,E,1,05,2.0,45.9,M,-5.7,M,,0000*77",
    "$GPGGA,010102.130,3606.6834,N,12021.7778,E,1,06,1.2,61.7,M,4.8,M,,0000*50",
    kRmc,
    "$GPVTG,238.3,T,244.6,M,025.0,N,046.3,K*46",
    kGsa,
    "$GPGSV,3,1,10,14,62,028,41,15,38,212,37,05,27,301,35,22,21,118,33*71",
    "$GPGSV,3,2,10,18,18,066,30,26,15,254,29,09,12,187,,21,09,334,24*7E",
    kGsv,
};

int parse(const char* text)
{
  const int len = static_cast<int>(strlen(text));
  switch (nmea_pack_type(text, len))
  {
  case NMEA_RMC:
  {
    _nmeaGPRMC rmc;
    return nmea_parse_GPRMC(text, len, &rmc);
  }
  case NMEA_GSA:
  {
    _nmeaGPGSA gsa;
    return nmea_parse_GPGSA(text, len, &gsa);
  }
  case NMEA_GSV:
  {
    _nmeaGPGSV gsv;
    return nmea_parse_GPGSV(text, len, &gsv);
  }
  case NMEA_GGA:
  {
    _nmeaGPGGA gga;
    return nmea_parse_GPGGA(text, len, &gga);
  }
  case NMEA_VTG:
  {
    _nmeaGPVTG vtg;
    return nmea_parse_GPVTG(text, len, &vtg);
  }
  default:
    return 0;
  }
}

void parse_samples()
{
  for (const char* text : kSamples)
  {
    if (parse(text) == 1)
      puts("parse ok");
    else
      assert_report(AssertLevel::Warning, __FILE__, kLineFailed);
  }
}

} // namespace

int test_gps(int argc, char** argv)
{
  const char* what = argc > 1 && argv != nullptr && argv[1] != nullptr ? argv[1] : "";
  if (strcmp(what, "gprmc") == 0)
    parse(kRmc);
  else if (strcmp(what, "gpgsv") == 0)
    parse(kGsv);
  else if (strcmp(what, "gpgsa") == 0)
    parse(kGsa);
  else if (strcmp(what, "test") == 0)
    parse_samples();
  else
    printf("    gpgga\n    gpgll\n    gpgsa\n    gpgsv\n    gprmc\n    gpvtg\n    h/?\n");
  return 0;
}
