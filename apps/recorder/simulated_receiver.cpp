#include "simulated_receiver.h"

#include "clock.h"

#include <devcomm/coordinates.h>
#include <devcomm/nmea.h>

#include <cstdio>

namespace
{

constexpr double kKmhPerMetreSecond = 3.6;
constexpr double kKmhPerKnot = 1.852;
constexpr double kSpeedKmh = kRouteSpeed * kKmhPerMetreSecond;
constexpr double kSpeedKnots = kSpeedKmh / kKmhPerKnot;

// "ddmm.mmmmm,N,dddmm.mmmmm,E"; empty fields in a tunnel.
struct PlaceText
{
  explicit PlaceText(const RoutePoint& at)
  {
    const CCoordsCalculate coords;
    if (!at.tunnel)
      snprintf(text, sizeof text, "%010.5f,N,%011.5f,E", coords.degree2Dm(at.lat), coords.degree2Dm(at.lon));
  }
  char text[40] = ",,,";
};

// "hhmmss.s" of now, to the tenth.
struct TimeText
{
  TimeText()
  {
    const int64_t now = wall_clock_us();
    nmea_time_from(&utc, static_cast<long>(now / 1000000));
    const auto tenths = static_cast<int>(now / 100000 % 10);
    snprintf(text, sizeof text, "%02d%02d%02d.%d", utc.hour, utc.min, utc.sec, tenths);
  }
  _nmeaTIME utc = {};
  char text[40];
};

} // namespace

SimulatedReceiver::SimulatedReceiver(int rate) : rate_(rate) {}

void SimulatedReceiver::play()
{
  const int64_t start = monotonic_us();
  for (int64_t tick = 0; sleep_until(start + tick * 1000000 / rate_); ++tick)
    send_position(route_at(static_cast<double>(tick) / rate_));
}

void SimulatedReceiver::send_position(const RoutePoint& at) const
{
  const TimeText time;
  const PlaceText place(at);
  char text[1024];
  constexpr int kSize = sizeof text;
  int n = 0;
  n += at.tunnel ? nmea_printf(text, kSize, "$GPGGA,%s,,,,,0,00,,,M,,M,,", time.text)
                 : nmea_printf(text, kSize, "$GPGGA,%s,%s,1,08,0.9,12.5,M,5.0,M,,", time.text, place.text);
  n += at.tunnel ? nmea_printf(text + n, kSize - n, "$GPGSA,A,1,,,,,,,,,,,,,,,")
                 : nmea_printf(text + n, kSize - n, "$GPGSA,A,3,02,05,07,09,13,16,21,29,,,,,1.6,0.9,1.3");
  n += nmea_printf(text + n, kSize - n, "$GPGSV,2,1,08,02,45,120,42,05,61,210,44,07,12,045,33,09,30,300,38");
  n += nmea_printf(text + n, kSize - n, "$GPGSV,2,2,08,13,77,010,46,16,25,090,36,21,18,180,34,29,52,270,41");
  n += nmea_printf(text + n, kSize - n, "$GPRMC,%s,%c,%s,%.2f,%.2f,%02d%02d%02d,,,%c", time.text,
                   at.tunnel ? 'V' : 'A', place.text, kSpeedKnots, at.course, time.utc.day, time.utc.mon + 1,
                   time.utc.year % 100, at.tunnel ? 'N' : 'A');
  n += nmea_printf(text + n, kSize - n, "$GPVTG,%.2f,T,,M,%.2f,N,%.2f,K,%c", at.course, kSpeedKnots,
                   kSpeedKmh, at.tunnel ? 'N' : 'A');
  send(text, n);
}
