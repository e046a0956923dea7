#pragma once

#include <devcomm/export.h>

#include <cstdint>

/// @file
/// Helpers on positions in degrees: headings, distances, point-in-area tests, the distance to a track
/// segment, and an outgoing RMC-style sentence.
///
///     gps_point_t fence[] = {{36.0, 120.0}, {36.0, 121.0}, {37.0, 121.0}, {37.0, 120.0}};
///     gps_point_t here = {36.1, 120.3};
///     int inside = gps_is_in_area_poly(&here, fence, 4); // 1
///
/// Plain functions without state; any thread. Points are only read. A null point gives 0.

/// A position in degrees.
struct gps_point_t
{
  double lat; ///< north positive
  double lon; ///< east positive
};

/// Difference of two headings, degrees. @return 0 to 180 for headings of 0 to 360
DEVCOMM_API int gps_calc_angle(int a, int b);

/// Flat-earth distance in whole numbers, the shorter way round the date line. Good for the distances of one
/// town; pi is 3.1415926 and every step truncates, and callers rely on the very numbers.
/// @return metres; 0 for a null point, after a report on standard error
DEVCOMM_API int64_t gps_calc_distance(gps_point_t* p1, gps_point_t* p2);

/// Great-circle distance (haversine, radius 6371.004 km, pi 3.14159265). @return metres
DEVCOMM_API double get_earth_distance(gps_point_t* p1, gps_point_t* p2);

/// Even-odd rule in the plane of degrees; of the boundary, west sides are outside and east sides inside.
/// Time grows in proportion to n.
/// @param poly  n vertices, the last joined to the first
/// @return 1 inside, 0 outside; 0 when n is below 3
DEVCOMM_API int gps_is_in_area_poly(gps_point_t* p, gps_point_t* poly, int n);

/// @param radius  metres
/// @return 1 when gps_calc_distance(p, centre), as a 32-bit number, is not above radius, else 0
DEVCOMM_API int gps_is_in_area_round(gps_point_t* p, gps_point_t* centre, int radius);

/// gps_is_in_area_poly on the box whose opposite corners are a and b.
DEVCOMM_API int gps_is_in_area_rect(gps_point_t* p, gps_point_t* a, gps_point_t* b);

/// Distance from p to the segment from a to b, in whole metres, by the sides of their triangle.
/// @return metres. The squares of the sides wrap beyond some 46 km, and then an end may be taken for the
///         nearest point or the other way round; callers rely on the very numbers
DEVCOMM_API int gps_calc_p2line(gps_point_t* p, gps_point_t* a, gps_point_t* b);

/// Writes an RMC-style sentence of the application's position record, with a checksum in lower case.
///
/// @param head    talker and kind without '$', such as "GPRMC"
/// @param when    seconds since 1970, written as local time
/// @param pos     byte-packed, at any alignment: status character at byte 0 ('A' valid), speed at 2 and
///                whole degrees of course at 16 (16-bit unsigned each), N/S at 18, E/W at 19, latitude
///                (ddmm.mmmmm) at 28 and longitude (dddmm.mmmmm) at 36 (doubles)
/// @param out     at least 160 bytes; of a void position as many as head has and 96 more
/// @param factor  scales the speed, in single precision. A void position is written with the bare speed and
///                course 00.0; callers rely on it
/// @return bytes written, without the terminator; -1 when pos is null. A valid text is cut before its checksum
///         at 126 bytes
DEVCOMM_API int nmea_Combine(const char* head, long when, void* pos, char* out, float factor);

/// Console test of the sentence parsers; argv[1] is gprmc, gpgsv, gpgsa or test, else the usage is printed.
/// @return 0
DEVCOMM_API int test_gps(int argc, char** argv);
