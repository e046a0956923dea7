#include <devcomm/coordinates.h>

#include <cmath>

CCoordsCalculate::CCoordsCalculate()
    : m_a(6378245.0F), m_b(6367500.0F), m_c1(111134.861F), m_c2(-16036.480F), m_c3(16.828F), m_c4(-0.022F),
      m_invF(298.3F), m_L0(108.0F), m_e2(0.0066934228F), m_ep2(0.0067385435F), m_pi(3.141592653589793),
      m_ee(0.006693421622965943), m_R(6378.137F)
{
}

float CCoordsCalculate::dm2Degree(float dm) const
{
  const float degrees = std::trunc(dm / 100);
  return (3600 * degrees + (dm - 100 * degrees) * 60) / 3600;
}

float CCoordsCalculate::degree2Dm(float degree) const
{
  const float whole = std::trunc(degree);
  return (degree - whole) * 60 + 100 * whole;
}

double CCoordsCalculate::degree2Dm(double degree) const
{
  const double whole = std::trunc(degree);
  return (degree - whole) * 60 + 100 * whole;
}

float CCoordsCalculate::toRadians(float degree) const
{
  return static_cast<float>(degree * m_pi / 180.0);
}

float CCoordsCalculate::toBL(float radian) const
{
  return static_cast<float>(radian * 180.0 / m_pi);
}

// The radians are rounded to single precision, and all that follows is in double, down to the metres.
int CCoordsCalculate::BL2xy(float B, float L, float& x, float& y) const
{
  const double lat = toRadians(B);
  const double m = (static_cast<double>(toRadians(L)) - toRadians(m_L0)) * std::cos(lat);
  const double e2 = m_e2;
  const double sin_lat = std::sin(lat);
  const double cos_lat = std::cos(lat);
  const double arc = static_cast<double>(m_c1) * B + m_c2 * std::sin(2 * lat) + m_c3 * std::sin(4 * lat) +
                     m_c4 * std::sin(6 * lat);
  const double t = std::tan(lat);
  const double t2 = t * t;
  const double t4 = t2 * t2;
  const double eta2 = e2 * cos_lat * cos_lat / (1 - e2);
  const double radius = m_a / std::sqrt(1 - e2 * sin_lat * sin_lat);
  const double m2 = m * m;
  const double m4 = m2 * m2;

  const double north =
      arc + radius * t * m2 *
                (0.5 + (5 - t2 + 9 * eta2 + 4 * eta2 * eta2) * m2 / 24 + (61 - 58 * t2 + t4) * m4 / 720);
  const double east =
      radius * m *
          (1 + (1 - t2 + eta2) * m2 / 6 + (5 - 18 * t2 + t4 + 14 * eta2 - 58 * eta2 * t2) * m4 / 120) +
      500000.0;
  x = static_cast<float>(std::floor(north));
  y = static_cast<float>(std::floor(east));
  return 0;
}

int CCoordsCalculate::xy2BL(float x, float y, float& B, float& L) const
{
  const double north = std::floor(x);
  const double east = std::floor(y);
  const double e2 = m_e2;

  // Footpoint latitude in degrees. Ten steps settle any real northing; the limit ends the others.
  double foot = north / m_c1;
  float step = 1.0F;
  for (int i = 0; i < 100 && std::fabs(step) > 1e-9; i++)
  {
    const double f = foot * m_pi / 180.0;
    const double next =
        (north - (m_c2 * std::sin(2 * f) + m_c3 * std::sin(4 * f) + m_c4 * std::sin(6 * f))) / m_c1;
    step = static_cast<float>(next - foot);
    foot = next;
  }

  const double lat = foot * m_pi / 180.0;
  const double sin_lat = std::sin(lat);
  const double cos_lat = std::cos(lat);
  const double t = std::tan(lat);
  const double t2 = t * t;
  const double t4 = t2 * t2;
  const double eta2 = e2 * cos_lat * cos_lat / (1 - e2);
  const double u = (east - 500000.0) / (m_a / std::sqrt(1 - e2 * sin_lat * sin_lat));
  const double u2 = u * u;
  const double u4 = u2 * u2;

  const double lat_out = lat - (1 + eta2) * t / 2 *
                                   (u2 - (5 + 3 * t2 + eta2 - 9 * eta2 * t2) * u4 / 12 +
                                    (61 + 90 * t2 + 45 * t4) * u4 * u2 / 360);
  const double lon_out =
      toRadians(m_L0) + (u - (1 + 2 * t2 + eta2) * u2 * u / 6 +
                         (5 + 28 * t2 + 24 * t4 + 6 * eta2 + 8 * eta2 * t2) * u4 * u / 120) /
                            cos_lat;
  B = toBL(static_cast<float>(lat_out));
  L = toBL(static_cast<float>(lon_out));
  return 0;
}

int CCoordsCalculate::outOfChina(float lat, float lon) const
{
  const double north = lat;
  const double east = lon;
  return east < 72.004 || east > 137.8347 || north < 0.8293 || north > 55.8271 ? 1 : 0;
}

float CCoordsCalculate::transformLat(float x, float y) const
{
  const double dx = x;
  const double dy = y;
  auto sum = static_cast<float>(-100.0 + 2.0 * dx + 3.0 * dy + 0.2 * dy * dy + 0.1 * dx * dy +
                                0.2 * std::sqrt(std::fabs(dx)));
  sum = static_cast<float>(sum +
                           (20.0 * std::sin(6.0 * dx * m_pi) + 20.0 * std::sin(2.0 * dx * m_pi)) * 2.0 / 3.0);
  sum = static_cast<float>(sum + (20.0 * std::sin(dy * m_pi) + 40.0 * std::sin(dy * m_pi / 3.0)) * 2.0 / 3.0);
  sum = static_cast<float>(sum + (160.0 * std::sin(dy * m_pi / 12.0) + 320.0 * std::sin(dy * m_pi / 30.0)) *
                                     2.0 / 3.0);
  return sum;
}

float CCoordsCalculate::transformLon(float x, float y) const
{
  const double dx = x;
  const double dy = y;
  auto sum = static_cast<float>(300.0 + dx + 2.0 * dy + 0.1 * dx * dx + 0.1 * dx * dy +
                                0.1 * std::sqrt(std::fabs(dx)));
  sum = static_cast<float>(sum +
                           (20.0 * std::sin(6.0 * dx * m_pi) + 20.0 * std::sin(2.0 * dx * m_pi)) * 2.0 / 3.0);
  sum = static_cast<float>(sum + (20.0 * std::sin(dx * m_pi) + 40.0 * std::sin(dx * m_pi / 3.0)) * 2.0 / 3.0);
  sum = static_cast<float>(sum + (150.0 * std::sin(dx * m_pi / 12.0) + 300.0 * std::sin(dx * m_pi / 30.0)) *
                                     2.0 / 3.0);
  return sum;
}

int CCoordsCalculate::gps84_2_gcj02(float lon, float lat, float& outLon, float& outLat) const
{
  if (outOfChina(lat, lon) != 0)
  {
    outLon = lon;
    outLat = lat;
    return -1;
  }
  const double offset_lat = transformLat(lon - 105, lat - 35);
  const double offset_lon = transformLon(lon - 105, lat - 35);
  const auto radians = static_cast<float>(lat / 180.0 * m_pi);
  const double sin_lat = std::sin(static_cast<double>(radians));
  const double magic = 1 - m_ee * sin_lat * sin_lat;
  const double root = std::sqrt(magic);
  const double cos_lat = std::cos(static_cast<double>(radians));
  outLat = static_cast<float>(lat + offset_lat * 180.0 / ((m_a * (1 - m_ee)) / (magic * root) * m_pi));
  outLon = static_cast<float>(lon + offset_lon * 180.0 / (m_a / root * cos_lat * m_pi));
  return 0;
}

int CCoordsCalculate::gcj02_2_gps84(float lon, float lat, float& outLon, float& outLat) const
{
  float grid_lon = 0;
  float grid_lat = 0;
  gps84_2_gcj02(lon, lat, grid_lon, grid_lat);
  outLon = static_cast<float>(2.0 * lon - grid_lon + 0.000005);
  outLat = static_cast<float>(2.0 * lat - grid_lat + 0.000005);
  return 0;
}
