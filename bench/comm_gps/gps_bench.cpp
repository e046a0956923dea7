// NMEA sentences against a plain strtok tokeniser, gps_is_in_area_poly against a plain crossing-number loop and
// Boost.Geometry's within, and line assembly on a pseudo-terminal against raw reads of the same bytes.

#include "comm_data/rounds.h"

#include <devcomm/gps.h>
#include <devcomm/nmea.h>
#include <devcomm/serial_port.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <string>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

#if __has_include(<boost/geometry.hpp>)
#define DEVCOMM_BENCH_BOOST
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wconversion"
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#pragma GCC diagnostic pop
#endif

namespace
{

// One second of a receiver's output.
const char* const sentences[] = {
    "$GPGGA,121252.000,3937.3032,N,11611.6046,E,1,05,2.0,45.9,M,-5.7,M,,0000*75\r\n",
    "$GPRMC,121252.000,A,3937.3032,N,11611.6046,E,25.0,238.3,010807,,,A*68\r\n",
    "$GPGSA,A,3,14,15,05,22,18,26,,,,,,,2.1,1.2,1.7*3D\r\n",
    "$GPGSV,3,1,10,14,62,028,41,15,38,212,37,05,27,301,35,22,21,118,33*71\r\n",
    "$GPGSV,3,2,10,18,18,066,30,26,15,254,29,09,12,187,,21,09,334,24*7E\r\n",
    "$GPGSV,3,3,10,29,07,074,,30,07,163,28*7D\r\n",
};
constexpr int passes = 20000;

void library_parse(_nmeaINFO& info)
{
  for (const char* text : sentences)
  {
    const int len = static_cast<int>(strlen(text));
    switch (nmea_pack_type(text, len))
    {
    case NMEA_GGA:
    {
      _nmeaGPGGA gga;
      if (nmea_parse_GPGGA(text, len, &gga) == 1)
        nmea_GPGGA2info(&gga, &info);
      break;
    }
    case NMEA_RMC:
    {
      _nmeaGPRMC rmc;
      if (nmea_parse_GPRMC(text, len, &rmc) == 1)
        nmea_GPRMC2info(&rmc, &info);
      break;
    }
    case NMEA_GSA:
    {
      _nmeaGPGSA gsa;
      if (nmea_parse_GPGSA(text, len, &gsa) == 1)
        nmea_GPGSA2info(&gsa, &info);
      break;
    }
    default:
    {
      _nmeaGPGSV gsv;
      if (nmea_parse_GPGSV(text, len, &gsv) == 1)
        nmea_GPGSV2info(&gsv, &info);
    }
    }
  }
}

// ---- The plain tokeniser: a copy, its fields by a strtok that keeps empty ones, numbers by the C library ----

struct Fields
{
  char copy[128];
  char* at[32];
  int count;

  explicit Fields(const char* text) : count(0)
  {
    strcpy(copy, text);
    char* rest = copy;
    while (count < 32)
    {
      char* field = strsep(&rest, ",*");
      if (field == nullptr)
        break;
      at[count++] = field;
    }
  }
  int integer(int i) const
  {
    return i < count ? static_cast<int>(strtol(at[i], nullptr, 10)) : 0;
  }
  double real(int i) const
  {
    return i < count ? strtod(at[i], nullptr) : 0;
  }
  char letter(int i) const
  {
    return i < count ? at[i][0] : '\0';
  }
};

int two_digits(const char* text)
{
  const char copy[] = {text[0], text[1], '\0'};
  return static_cast<int>(strtol(copy, nullptr, 10));
}

void plain_time(const Fields& fields, _nmeaTIME& utc)
{
  const char* text = fields.at[1];
  if (strlen(text) < 6)
    return;
  utc.hour = two_digits(text);
  utc.min = two_digits(text + 2);
  utc.sec = two_digits(text + 4);
  utc.hsec = text[6] == '.' ? static_cast<int>(strtol(text + 7, nullptr, 10)) : 0;
}

void plain_position(const Fields& fields, int first, _nmeaINFO& info)
{
  info.lat = fields.letter(first + 1) == 'N' ? fields.real(first) : -fields.real(first);
  info.lon = fields.letter(first + 3) == 'E' ? fields.real(first + 2) : -fields.real(first + 2);
}

void plain_gsv(const Fields& fields, _nmeaINFO& info)
{
  const int first = (fields.integer(2) - 1) * 4;
  info.satinfo.inview = fields.integer(3);
  for (int i = 0; i < 4 && first + i < info.satinfo.inview && first + i < 12; i++)
  {
    _nmeaSATELLITE& sat = info.satinfo.sat[first + i];
    sat.id = fields.integer(4 + 4 * i);
    sat.elv = fields.integer(5 + 4 * i);
    sat.azimuth = fields.integer(6 + 4 * i);
    sat.sig = fields.integer(7 + 4 * i);
  }
}

void plain_gsa(const Fields& fields, _nmeaINFO& info)
{
  info.fix = fields.integer(2);
  int in_use = 0;
  for (int i = 0; i < 12; i++)
  {
    const int prn = fields.integer(3 + i);
    for (int j = 0; prn != 0 && j < info.satinfo.inview && j < 12; j++)
    {
      if (info.satinfo.sat[j].id == prn)
      {
        info.satinfo.sat[j].in_use = 1;
        in_use++;
      }
    }
  }
  info.satinfo.inuse = in_use;
  info.PDOP = fields.real(15);
  info.HDOP = fields.real(16);
  info.VDOP = fields.real(17);
}

void plain_parse(_nmeaINFO& info)
{
  for (const char* text : sentences)
  {
    const Fields fields(text);
    if (strcmp(fields.at[0] + 3, "GGA") == 0)
    {
      plain_time(fields, info.utc);
      plain_position(fields, 2, info);
      info.sig = fields.integer(6);
      int satinuse = fields.integer(7);
      info.HDOP = fields.real(8);
      info.elv = fields.real(9);
      double diff = fields.real(11);
      keep(satinuse);
      keep(diff);
    }
    else if (strcmp(fields.at[0] + 3, "RMC") == 0)
    {
      plain_time(fields, info.utc);
      plain_position(fields, 3, info);
      info.speed = fields.real(7) * 1.852;
      info.direction = fields.real(8);
      info.utc.day = two_digits(fields.at[9]);
      info.utc.mon = two_digits(fields.at[9] + 2) - 1;
      info.utc.year = two_digits(fields.at[9] + 4) + 100;
    }
    else if (strcmp(fields.at[0] + 3, "GSA") == 0)
      plain_gsa(fields, info);
    else if (strcmp(fields.at[0] + 3, "GSV") == 0)
      plain_gsv(fields, info);
  }
}

template <typename Parse>
auto parse_job(Parse parse)
{
  return [parse]
  {
    _nmeaINFO info = {};
    for (int i = 0; i < passes; i++)
    {
      parse(info);
      keep(info);
    }
  };
}

void bench_sentences()
{
  const Medians times = alternate(21, parse_job(library_parse), parse_job(plain_parse));
  const double count = passes * 6.0;
  printf(
      "| classify + parse + fold, mixed sentences | strsep, strtod, strtol | %.2f | %.2f M/s, %.2f M/s |\n",
      times.theirs / times.ours, count / times.ours / 1e6, count / times.theirs / 1e6);
}

// ---- Polygons ----

// A jagged star round (0, 0), counter-clockwise in (lon, lat).
std::vector<gps_point_t> star(int n)
{
  std::mt19937 random(5);
  std::vector<gps_point_t> poly;
  for (int i = 0; i < n; i++)
  {
    const double radius = 1 + static_cast<double>(random() % 1000) / 4000;
    poly.push_back({radius * std::sin(i * 2 * M_PI / n), radius * std::cos(i * 2 * M_PI / n)});
  }
  return poly;
}

std::vector<gps_point_t> probes()
{
  std::mt19937 random(6);
  std::vector<gps_point_t> points(256);
  for (gps_point_t& p : points)
    p = {static_cast<double>(random() % 2600) / 1000 - 1.3,
         static_cast<double>(random() % 2600) / 1000 - 1.3};
  return points;
}

__attribute__((noinline)) int plain_within(const gps_point_t& p, const gps_point_t* poly, int n)
{
  bool inside = false;
  for (int i = 0, j = n - 1; i < n; j = i++)
  {
    if ((poly[i].lat > p.lat) != (poly[j].lat > p.lat) &&
        p.lon >
            (poly[j].lon - poly[i].lon) * (p.lat - poly[i].lat) / (poly[j].lat - poly[i].lat) + poly[i].lon)
      inside = !inside;
  }
  return inside ? 1 : 0;
}

template <typename Within>
auto polygon_job(const std::vector<gps_point_t>& points, int calls, int& inside, Within within)
{
  return [&points, calls, &inside, within]
  {
    inside = 0;
    for (int i = 0; i < calls; i++)
    {
      gps_point_t p = points[static_cast<size_t>(i) % points.size()];
      inside += within(p);
    }
    keep(inside);
  };
}

void print_polygon(int n, const char* against, int calls, Medians times, bool agree)
{
  printf("| gps_is_in_area_poly, %d vertices | %s | %.2f | %.3g us, %.3g us%s |\n", n, against,
         times.theirs / times.ours, times.ours / calls * 1e6, times.theirs / calls * 1e6,
         agree ? "" : ", ANSWERS DIFFER");
}

void bench_polygon(int n)
{
  std::vector<gps_point_t> poly = star(n);
  const std::vector<gps_point_t> points = probes();
  const int calls = std::max(256, 4000000 / n / 256 * 256);
  int ours = 0;
  int theirs = 0;
  const auto job = polygon_job(points, calls, ours,
                               [&](gps_point_t& p) { return gps_is_in_area_poly(&p, poly.data(), n); });
  const Medians plain = alternate(
      11, job,
      polygon_job(points, calls, theirs, [&](gps_point_t& p) { return plain_within(p, poly.data(), n); }));
  print_polygon(n, "crossing-number loop", calls, plain, ours == theirs);
#ifdef DEVCOMM_BENCH_BOOST
  namespace bg = boost::geometry;
  using Point = bg::model::d2::point_xy<double>;
  bg::model::polygon<Point, false> area;
  for (const gps_point_t& vertex : poly)
    bg::append(area.outer(), Point(vertex.lon, vertex.lat));
  bg::append(area.outer(), Point(poly[0].lon, poly[0].lat));
  const Medians boost =
      alternate(5, job,
                polygon_job(points, calls, theirs,
                            [&](gps_point_t& p) { return bg::within(Point(p.lon, p.lat), area) ? 1 : 0; }));
  print_polygon(n, "Boost.Geometry within", calls, boost, ours == theirs);
#endif
}

// ---- Line assembly ----

constexpr int lines = 20000;

// Sends the lines from a thread of its own while `receive` takes all bytes of the device.
template <typename Receive>
void through_terminal(Receive receive)
{
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  char device[64] = "";
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
      ptsname_r(master, device, sizeof device) != 0)
    abort();
  CCommCom port;
  if (port.OpenCom(device, 0) != 0 || port.SetMode() != 0)
    abort();
  port.SetSelectProp(10, 0, 0);
  std::thread sender(
      [master]
      {
        for (int i = 0; i < lines; i++)
        {
          const char* text = sentences[i % 6];
          for (size_t sent = 0; sent < strlen(text);)
          {
            const ssize_t n = write(master, text + sent, strlen(text) - sent);
            if (n > 0)
              sent += static_cast<size_t>(n);
          }
        }
      });
  receive(port);
  sender.join();
  port.CloseCom();
  close(master);
}

void bench_lines()
{
  size_t total = 0;
  for (int i = 0; i < lines; i++)
    total += strlen(sentences[i % 6]);
  const auto assemble = [total]
  {
    through_terminal(
        [total](CCommCom& port)
        {
          char line[256];
          int len = 0;
          for (size_t got = 0; got < total; got += static_cast<size_t>(len))
            port.ReadComWithBuf(line, sizeof line, &len);
        });
  };
  const auto raw = [total]
  {
    through_terminal(
        [total](CCommCom& port)
        {
          char bytes[512];
          for (size_t got = 0; got < total;)
          {
            const ssize_t n = read(port.GetPortFD(), bytes, sizeof bytes);
            got += n > 0 ? static_cast<size_t>(n) : 0;
          }
        });
  };
  print_row("line assembly on a pseudo-terminal", "raw reads", static_cast<double>(total),
            alternate(15, assemble, raw));
}

} // namespace

int main()
{
  bench_sentences();
  for (int n : {10, 1000, 100000})
    bench_polygon(n);
  bench_lines();
  return 0;
}
