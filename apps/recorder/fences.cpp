#include "fences.h"

#include <devcomm/coordinates.h>
#include <devcomm/gps.h>

namespace
{

// The two ways of the library: a polygon in degrees, and a circle in metres.

bool in_depot(double lat, double lon)
{
  gps_point_t corners[] = {
      {36.05982, 120.37978}, {36.05982, 120.38022}, {36.06018, 120.38022}, {36.06018, 120.37978}};
  gps_point_t here = {lat, lon};
  return gps_is_in_area_poly(&here, corners, 4) != 0;
}

bool in_harbour(double lat, double lon)
{
  constexpr double kRadius = 25;
  pos_t centre = {120.381335, 36.060612};
  pos_t here = {lon, lat};
  return CCoordsCalculate().pt_in_round(&centre, kRadius, &here) != 0;
}

} // namespace

const char* fence_at(double lat, double lon)
{
  if (in_depot(lat, lon))
    return "depot";
  return in_harbour(lat, lon) ? "harbour" : "";
}
