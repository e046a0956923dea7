#include <devcomm/gps.h>
#include <devcomm/nmea.h>

#include "support/measure.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace
{

// The application's byte-packed record, one byte off any alignment.
struct Position
{
  Position(char status, uint16_t speed, uint16_t course, double lat, double lon)
  {
    bytes[1] = status;
    memcpy(bytes + 1 + 2, &speed, 2);
    memcpy(bytes + 1 + 16, &course, 2);
    memcpy(bytes + 1 + 18, "NW", 2);
    memcpy(bytes + 1 + 28, &lat, 8);
    memcpy(bytes + 1 + 36, &lon, 8);
  }
  void* record()
  {
    return bytes + 1;
  }
  alignas(8) char bytes[48] = {};
};

std::string combine(const char* head, Position position, float factor)
{
  char out[512];
  memset(out, '#', sizeof out);
  const int n = nmea_Combine(head, 951782400 + 3661, position.record(), out, factor);
  EXPECT_EQ(strlen(out), static_cast<size_t>(n));
  EXPECT_EQ(out[n + 1], '#') << "nothing behind the terminator";
  return out;
}

} // namespace

// The expected numbers come from an independent calculation: the described steps in Python, with sine,
// cosine and arc sine evaluated to 200 bits and rounded to double.
TEST(Gps, DistancesEqualTheIndependentCalculation)
{
  struct
  {
    gps_point_t p, q;
    int64_t flat, flat_back;
    double earth;
  } pairs[] = {{{0, 179.9}, {0, -179.9}, 22239, 22239, 22239.045007303164},
               {{36.1, 120.3}, {36.2, 120.5}, 21130, 21111, 21121.381931535518},
               {{-33.5, -70.25}, {-33.501, -70.2}, 4637, 4637, 4637.502996203716},
               {{89.5, 10}, {89.4, -170}, 174594, 209455, 122314.51883431977}};
  for (auto& pair : pairs)
  {
    EXPECT_EQ(gps_calc_distance(&pair.p, &pair.q), pair.flat);
    EXPECT_EQ(gps_calc_distance(&pair.q, &pair.p), pair.flat_back) << "by the first point's latitude";
    EXPECT_DOUBLE_EQ(get_earth_distance(&pair.p, &pair.q), pair.earth);
    EXPECT_EQ(gps_is_in_area_round(&pair.p, &pair.q, static_cast<int>(pair.flat)), 1);
    EXPECT_EQ(gps_is_in_area_round(&pair.p, &pair.q, static_cast<int>(pair.flat) - 1), 0);
  }

  struct
  {
    gps_point_t p, a, b;
    int metres;
  } segments[] = {{{36.01, 120.1}, {36, 120}, {36, 120.2}, 1104},
                  {{36, 120.3}, {36, 120}, {36, 120.2}, 8995},
                  {{36, 119.7}, {36, 120}, {36, 120}, 26987},
                  {{36, 120.1}, {36, 120}, {36, 120.2}, 0},      // sides that close to no triangle
                  {{36.05, 120.5}, {36, 120}, {36, 121}, 45307}, // squares that wrap
                  {{40, 120.9}, {36, 120}, {36, 125}, 451709}};
  for (auto& s : segments)
    EXPECT_EQ(gps_calc_p2line(&s.p, &s.a, &s.b), s.metres);

  EXPECT_EQ(gps_calc_angle(350, 10), 20);
  EXPECT_EQ(gps_calc_angle(0, 180), 180);
  CaptureStderr();
  EXPECT_EQ(gps_calc_distance(nullptr, &pairs[0].p), 0);
  EXPECT_EQ(occurrences(GetCapturedStderr(), "  >ERROR, assert failed (source/comm_gps/gps.cpp:837)"), 1);
  gps_point_t none = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()};
  gps_point_t far = {1e300, -1e300};
  gps_calc_distance(&none, &far);
  gps_calc_distance(&far, &pairs[0].p);
  EXPECT_EQ(gps_calc_p2line(&none, &far, &pairs[0].p), 0);
}

// A regular polygon contains its inner circle and lies within its outer one, whatever its size.
TEST(Gps, PolygonsOfAllSizesHoldWhatIsInThem)
{
  std::mt19937 random(7);
  const auto real = [&random](double limit)
  {
    return static_cast<double>(random() % 1000001) / 1e6 * limit;
  };
  int inside = 0;
  for (int round = 0; round < 20000; round++)
  {
    const int n = 3 + static_cast<int>(random() % 200);
    const double turn = real(6.3);
    std::vector<gps_point_t> poly;
    for (int i = 0; i < n; i++)
      poly.push_back({10 + std::sin(turn + i * 2 * M_PI / n), 20 + std::cos(turn + i * 2 * M_PI / n)});
    gps_point_t p = {8.9 + real(2.2), 18.9 + real(2.2)};
    const double radius = std::hypot(p.lat - 10, p.lon - 20);
    const int answer = gps_is_in_area_poly(&p, poly.data(), n);
    inside += answer;
    if (radius > 1 || radius < std::cos(M_PI / n))
    {
      ASSERT_EQ(answer, radius < 1 ? 1 : 0) << n;
    }
  }
  EXPECT_GT(inside, 10000);

  gps_point_t square[] = {{0, 0}, {0, 2}, {2, 2}, {2, 0}};
  std::pair<gps_point_t, int> edges[] = {{{1, 0}, 0}, {{1, 2}, 1}, {{0, 1}, 1}, {{2, 1}, 0}, {{1, 1}, 1}};
  for (auto& [p, is_inside] : edges)
  {
    EXPECT_EQ(gps_is_in_area_poly(&p, square, 4), is_inside) << p.lat << "," << p.lon;
    EXPECT_EQ(gps_is_in_area_rect(&p, &square[3], &square[1]), is_inside);
    EXPECT_EQ(gps_is_in_area_poly(&p, square, 2), 0);
  }
  std::vector<gps_point_t> odd(100, {std::numeric_limits<double>::quiet_NaN(), 0});
  odd[50] = {std::numeric_limits<double>::infinity(), 1};
  gps_is_in_area_poly(&square[0], odd.data(), 100);
}

TEST(Gps, CombinesThePositionIntoASentence)
{
  setenv("TZ", "XYZ-8", 1);
  tzset();
  const std::string valid = combine("GPRMC", {'A', 1234, 238, 3606.6834, 12021.7778}, 0.1F);
  EXPECT_EQ(valid, "$GPRMC,090101.000,A,3606.68340,N,12021.77780,W,123.40,238.00,290200,,,N*7b\r\n");
  EXPECT_EQ(combine("GPRMC", {'V', 1234, 238, 1, 1}, 0.1F),
            "$GPRMC,090101.000,V,,,,,1234.00,00.0,290200,,,N*79\r\n");
  _nmeaGPRMC rmc;
  EXPECT_EQ(nmea_parse_GPRMC(valid.data(), static_cast<int>(valid.size()), &rmc), 1);
  EXPECT_TRUE(rmc.lat == 3606.6834 && rmc.speed == 123.4 && rmc.utc.year == 100 && rmc.utc.day == 29);

  EXPECT_EQ(combine("GPRMC", {'A', 65535, 65535, -1e300, 1e300}, 3e38F).size(), 130U); // cut
  EXPECT_EQ(combine(std::string(200, 'h').c_str(), {'V', 0, 0, 0, 0}, 1).size(), 200U + 44);
  char out[16] = "";
  EXPECT_EQ(nmea_Combine("GPRMC", 0, nullptr, out, 1), -1);
}

TEST(Gps, ConsoleTestParsesItsSamples)
{
  char name[] = "test_gps";
  char test[] = "test";
  char* with_test[] = {name, test, nullptr};
  CaptureStdout();
  test_gps(2, with_test);
  test_gps(1, with_test);
  EXPECT_EQ(GetCapturedStdout(),
            "parse ok\nparse ok\nparse ok\nparse ok\nparse ok\nparse ok\nparse ok\nparse ok\n"
            "    gpgga\n    gpgll\n    gpgsa\n    gpgsv\n    gprmc\n    gpvtg\n    h/?\n");
}
