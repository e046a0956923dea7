// Drives across a polygonal and a circular fence and says when it enters and leaves each.

#include <devcomm/gps.h>

#include <cstdio>

int main()
{
  gps_point_t harbour[] = {
      {36.00, 120.10}, {36.00, 120.30}, {36.10, 120.35}, {36.12, 120.20}, {36.08, 120.12}};
  gps_point_t depot = {36.05, 120.45};
  const int depot_radius = 2000; // metres

  int crossings = 0;
  int in_harbour = 0;
  int in_depot = 0;
  for (int minute = 0; minute <= 50; minute++)
  {
    gps_point_t here = {36.05, 120.00 + minute * 0.01};
    const int harbour_now = gps_is_in_area_poly(&here, harbour, 5);
    const int depot_now = gps_is_in_area_round(&here, &depot, depot_radius);
    if (harbour_now != in_harbour)
      printf("minute %2d: %s the harbour\n", minute, harbour_now != 0 ? "enters" : "leaves");
    if (depot_now != in_depot)
      printf("minute %2d: %s the depot, %.0f m from its centre\n", minute,
             depot_now != 0 ? "enters" : "leaves", get_earth_distance(&here, &depot));
    crossings += (harbour_now != in_harbour ? 1 : 0) + (depot_now != in_depot ? 1 : 0);
    in_harbour = harbour_now;
    in_depot = depot_now;
  }
  return crossings == 4 ? 0 : 1;
}
