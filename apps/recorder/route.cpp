#include "route.h"

#include <devcomm/gps.h>

#include <cmath>
#include <iterator>

namespace
{

gps_point_t kCorners[] = {{36.060000, 120.380000}, // the depot
                          {36.060135, 120.380834},
                          {36.060612, 120.381335}, // the harbour
                          {36.060944, 120.380501},
                          {36.060540, 120.379833}};
constexpr int kLegs = std::size(kCorners);

// Metres from the depot.
constexpr double kTunnelBegin = 190;
constexpr double kTunnelEnd = 250;

gps_point_t& leg_begin(int leg)
{
  return kCorners[leg];
}

gps_point_t& leg_end(int leg)
{
  return kCorners[(leg + 1) % kLegs];
}

double leg_length(int leg)
{
  return get_earth_distance(&leg_begin(leg), &leg_end(leg));
}

double lap_length()
{
  double metres = 0;
  for (int leg = 0; leg < kLegs; ++leg)
    metres += leg_length(leg);
  return metres;
}

double course_of(int leg)
{
  constexpr double kDegree = 3.14159265358979 / 180;
  const double north = leg_end(leg).lat - leg_begin(leg).lat;
  const double east = (leg_end(leg).lon - leg_begin(leg).lon) * cos(leg_begin(leg).lat * kDegree);
  return fmod(atan2(east, north) / kDegree + 360, 360);
}

} // namespace

RoutePoint route_at(double seconds)
{
  const double metres = fmod(seconds * kRouteSpeed, lap_length());
  int leg = 0;
  double onLeg = metres;
  while (leg < kLegs - 1 && onLeg > leg_length(leg))
    onLeg -= leg_length(leg++);

  const double part = onLeg / leg_length(leg);
  const gps_point_t& from = leg_begin(leg);
  const gps_point_t& to = leg_end(leg);
  return {from.lat + (to.lat - from.lat) * part, from.lon + (to.lon - from.lon) * part, course_of(leg),
          metres >= kTunnelBegin && metres < kTunnelEnd};
}
