#include "internal/assert_report.h"

#include <devcomm/gps.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{

constexpr int kLineNullPoint = 837; // device logs are searched by it

// The length of 180 degrees of a great circle, in metres and in units of 1e-7 degrees.
constexpr int64_t kHalfCircleMetres = 20015805;
constexpr int64_t kHalfCircle = 1800000000;
constexpr int64_t kUnitsPerDegree = 10000000;

// Truncates; what does not fit becomes the nearest number that does, and no number becomes 0.
template <typename Int>
Int truncated(double value)
{
  constexpr auto kLimit = static_cast<double>(std::numeric_limits<Int>::max());
  if (std::isnan(value))
    return 0;
  if (value >= kLimit)
    return std::numeric_limits<Int>::max();
  return value <= -kLimit ? -std::numeric_limits<Int>::max() : static_cast<Int>(value);
}

// Positions that are none may overflow: the product wraps.
int64_t product(int64_t a, int64_t b)
{
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int32_t wrapped_sum(uint32_t a, uint32_t b)
{
  return static_cast<int32_t>(a + b);
}

uint32_t square(int32_t a)
{
  return static_cast<uint32_t>(a) * static_cast<uint32_t>(a);
}

// Whether an edge that leaves the latitude's one side for the other does so west of p. With a latitude
// that is no number it does not.
bool crosses_west(const gps_point_t& i, const gps_point_t& j, const gps_point_t& p)
{
  return i.lon - (i.lon - j.lon) * (i.lat - p.lat) / (i.lat - j.lat) < p.lon;
}

#if defined(__SSE2__)
// Vertices that are looked at in one go: while they are all on one side of the latitude no edge between
// them crosses it, and to see that costs a fraction of looking at each. Both coordinates are compared, as
// one vector, and the latitude's half of the answer is used.
constexpr int kBlock = 32;

using Vector = double __attribute__((vector_size(16)));
using Mask = long long __attribute__((vector_size(16)));

bool all_on_side(const gps_point_t* vertices, double lat, bool above)
{
  const Vector level = {lat, lat};
  Mask any = {0, 0};
  Mask all = {-1, -1};
  for (int i = 0; i < kBlock; i++)
  {
    Vector vertex;
    memcpy(&vertex, &vertices[i], sizeof vertex);
    const Mask higher = vertex > level;
    any |= higher;
    all &= higher;
  }
  return above ? all[0] != 0 : any[0] == 0;
}
#else
constexpr int kBlock = 1;

bool all_on_side(const gps_point_t*, double, bool)
{
  return false;
}
#endif

} // namespace

int gps_calc_angle(int a, int b)
{
  const int64_t d = std::abs(static_cast<int64_t>(a) - b);
  return static_cast<int>(d <= 180 ? d : 360 - d);
}

int64_t gps_calc_distance(gps_point_t* p1, gps_point_t* p2)
{
  if (p1 == nullptr || p2 == nullptr)
  {
    assert_report(AssertLevel::Error, __FILE__, kLineNullPoint);
    return 0;
  }
  const auto cosine =
      truncated<int64_t>(std::cos(p1->lat * 31415926.0 / 180.0 / 10000000.0) * kUnitsPerDegree);
  int64_t dlon = truncated<int64_t>((p1->lon - p2->lon) * kUnitsPerDegree);
  const int64_t dlat = truncated<int64_t>((p1->lat - p2->lat) * kUnitsPerDegree);
  if (dlon > kHalfCircle)
    dlon -= 2 * kHalfCircle;
  else if (dlon < -kHalfCircle)
    dlon += 2 * kHalfCircle;

  const int64_t y = product(dlat, kHalfCircleMetres) / kHalfCircle;
  const int64_t metres_per_degree = cosine / 180 * kHalfCircleMetres / kUnitsPerDegree;
  const int64_t x = product(metres_per_degree, dlon) / kUnitsPerDegree;
  return truncated<int64_t>(std::hypot(static_cast<double>(x), static_cast<double>(y)));
}

double get_earth_distance(gps_point_t* p1, gps_point_t* p2)
{
  constexpr double kPi = 3.14159265;
  if (p1 == nullptr || p2 == nullptr)
    return 0;
  const double phi1 = p1->lat * kPi / 180;
  const double phi2 = p2->lat * kPi / 180;
  const double sin_lat = std::sin((phi1 - phi2) / 2);
  const double sin_lon = std::sin((p1->lon * kPi / 180 - p2->lon * kPi / 180) / 2);
  const double h = sin_lat * sin_lat + std::cos(phi1) * std::cos(phi2) * (sin_lon * sin_lon);
  // Rounding may carry h past 1 for antipodes.
  const double root = std::sqrt(h);
  return 2 * std::asin(root > 1.0 ? 1.0 : root) * 6371.004 * 1000.0;
}

int gps_is_in_area_poly(gps_point_t* p, gps_point_t* poly, int n)
{
  if (p == nullptr || poly == nullptr || n < 3)
    return 0;
  const gps_point_t at = *p;
  const gps_point_t* from = &poly[n - 1];
  bool from_above = from->lat > at.lat;
  unsigned crossings = 0;
  for (int i = 0; i < n;)
  {
    if (n - i >= kBlock && all_on_side(poly + i, at.lat, from_above))
    {
      i += kBlock;
      from = &poly[i - 1];
      continue;
    }
    for (const int end = std::min(n - i, kBlock) + i; i < end; i++)
    {
      const bool above = poly[i].lat > at.lat;
      if (above != from_above)
        crossings += crosses_west(*from, poly[i], at) ? 1U : 0U;
      from_above = above;
      from = &poly[i];
    }
  }
  return static_cast<int>(crossings & 1U);
}

int gps_is_in_area_round(gps_point_t* p, gps_point_t* centre, int radius)
{
  if (p == nullptr || centre == nullptr)
    return 0;
  return radius >= static_cast<int32_t>(gps_calc_distance(p, centre)) ? 1 : 0;
}

int gps_is_in_area_rect(gps_point_t* p, gps_point_t* a, gps_point_t* b)
{
  if (a == nullptr || b == nullptr)
    return 0;
  gps_point_t corners[] = {*a, {a->lat, b->lon}, *b, {b->lat, a->lon}};
  return gps_is_in_area_poly(p, corners, 4);
}

int gps_calc_p2line(gps_point_t* p, gps_point_t* a, gps_point_t* b)
{
  const auto to_a = truncated<int32_t>(get_earth_distance(p, a));
  const auto to_b = truncated<int32_t>(get_earth_distance(p, b));
  const auto length = truncated<int32_t>(get_earth_distance(a, b));
  if (to_a == 0 || to_b == 0)
    return 0;
  if (length == 0)
    return to_a;

  // The squares wrap in 32 bits: callers rely on the very numbers.
  const uint32_t a2 = square(to_a);
  const uint32_t b2 = square(to_b);
  const uint32_t c2 = square(length);
  if (static_cast<int32_t>(a2) >= wrapped_sum(b2, c2))
    return to_b;
  if (static_cast<int32_t>(b2) >= wrapped_sum(a2, c2))
    return to_a;

  const auto fa = static_cast<float>(to_a);
  const auto fb = static_cast<float>(to_b);
  const auto fc = static_cast<float>(length);
  const float half = static_cast<float>(to_a + to_b + length) / 2;
  const float area2 = (half - fa) * half * (half - fb) * (half - fc);
  // Sides cut to whole metres need not close to a triangle when p is on the segment.
  const float area = area2 > 0 ? std::sqrt(area2) : 0.0F;
  return truncated<int32_t>(2 * area / fc);
}
