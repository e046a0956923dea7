#pragma once

#include <devcomm/export.h>

#include <cstdint>

/// @file
/// Planar and geodetic calculations behind geofences: distances, point-in-area tests, degrees-minutes,
/// the Gauss-Krueger plane on the Krasovsky 1940 ellipsoid and the GCJ-02 offset grid.
///
///     CCoordsCalculate coords;
///     pos_t fence[] = {{0, 0}, {4, 0}, {4, 3}, {0, 3}};
///     pos_t here = {1, 2};
///     int inside = coords.pt_in_poly(fence, 4, &here); // 1
///
/// Geofences are planes of doubles; the conversions take and give single precision. Each rounding to
/// single precision that is promised here happens at its place and nowhere else, so that every machine
/// computes the same numbers.

/// A point of the plane. For distances x is the longitude and y the latitude, in degrees.
struct pos_t
{
  double x; ///< longitude or easting
  double y; ///< latitude or northing
};

/// A box with sides along the axes.
struct rect_t
{
  double minx;
  double miny;
  double maxx;
  double maxy;
};

/// A position in the application's fixed-point unit, taken unchanged as x = lon, y = lat.
struct gps_pos_t
{
  uint32_t lat;
  uint32_t lon;
};

/// A circular area.
struct round_item_t
{
  int32_t radius; ///< metres
  gps_pos_t centre;
};

/// A rectangular area between two opposite corners.
struct rect_item_t
{
  gps_pos_t corner1;
  gps_pos_t corner2;
};

/// A polygon: `count` vertices follow one another in place, the last joined to the first.
/// Its size in bytes is 4 + 8 * count.
struct poly_item_t
{
  int32_t count;
  gps_pos_t vertices[1];
};

/// One point of a track.
struct dot_point_t
{
  uint32_t lat;
  uint32_t lon;
  int32_t width; ///< allowed distance, in metres, from the segment that starts here
};

/// A track: `count` points follow one another in place. Its size in bytes is 4 + 12 * count.
struct dot_item_t
{
  int32_t count;
  dot_point_t points[1];
};

static_assert(sizeof(gps_pos_t) == 8 && sizeof(round_item_t) == 12 && sizeof(rect_item_t) == 16, "layout");
static_assert(sizeof(poly_item_t) == 12 && sizeof(dot_point_t) == 12 && sizeof(dot_item_t) == 16, "layout");

/// The calculations. An object holds only constants and every method is a pure function of its arguments:
/// one object serves all threads. Nothing is kept of what a pointer points to. A null pointer gives the
/// answer for "not so" (0, or -1 where 0 means yes), or leaves the output alone.
class DEVCOMM_API CCoordsCalculate
{
public:
  CCoordsCalculate();

  /// Haversine distance of two points in degrees, computed in double precision.
  /// @return metres, rounded to single precision once, at the end
  float calculateDistance(double lat1, double lon1, double lat2, double lon2) const;

  /// Haversine distance of two points in degrees.
  /// @return metres; the central angle is rounded to single precision before it is scaled; 0 for null
  float calculateDistance(pos_t* a, pos_t* b) const;

  /// Tells whether p lies on the segment from a to b, ends included, compared exactly.
  /// @return 0 when it does, -1 when not
  int on_same_line(pos_t* a, pos_t* b, pos_t* p) const;

  /// Bounding box of n points; all zero when n is below 1.
  void vertices_get_extent(pos_t* pts, int n, rect_t* r) const;

  /// @return 1 when p and q lie strictly on the same side of the line through a and b, else 0
  int is_same(pos_t* a, pos_t* b, pos_t* p, pos_t* q) const;

  /// @return 1 when the segments a-b and c-d cross or touch, else 0. Two segments on one line count as
  /// touching wherever on it they lie.
  int is_intersect(pos_t* a, pos_t* b, pos_t* c, pos_t* d) const;

  /// Tells, for a p on the line through a and b, whether it lies between them, by distances in metres.
  /// @return 0 when neither a-p nor p-b is longer than a-b, else -1
  int is_between(pos_t* a, pos_t* b, pos_t* p) const;

  /// Foot of the perpendicular from p on the line through a and b, into *out.
  void calculate_intersection(pos_t* a, pos_t* b, pos_t* p, pos_t* out) const;

  /// Even-odd rule; the boundary belongs to the area. Time grows in proportion to n.
  /// @return 1 inside or on the boundary, else 0; 0 when n is below 3
  int pt_in_poly(pos_t* poly, int n, pos_t* p) const;

  /// @return 1 when p is within `width` metres of the segment a-b, else 0
  int pt_in_line(pos_t a, pos_t b, pos_t p, double width) const;

  /// @return 1 when p is within `radius` metres of the centre, else 0
  int pt_in_round(pos_t* centre, double radius, pos_t* p) const;

  /// @return 1 when p lies strictly inside the box of two opposite corners, in either order, else 0
  int pt_in_rect(pos_t p, pos_t c1, pos_t c2) const;

  /// Circle test whose centre is (lat, lat) of the record: the longitude of the centre is not read.
  /// Callers rely on it. @return 1 inside, else 0
  int in_round(gps_pos_t* pos, round_item_t* item) const;

  /// pt_in_rect on a record. @return 1 inside, else 0
  int in_rect(gps_pos_t* pos, rect_item_t* item) const;

  /// pt_in_poly on a record.
  /// @return 1 inside; else 0, also for counts below 3 or above 1,048,576 and when memory runs out
  int in_polygon(gps_pos_t* pos, poly_item_t* item) const;

  /// Tests each segment of a track with the width of the point it starts at.
  /// @param item  a count below 1 is set to 1 in the record; callers rely on it
  /// @return 1 near any segment; else 0, also for a single point and for counts above 1,048,576
  int in_line(gps_pos_t* pos, dot_item_t* item) const;

  /// Planar distance from (px, py) to the line through two points, all in single precision.
  float getPos2lineDis(float x1, float y1, float x2, float y2, float px, float py) const;

  /// Foot of the perpendicular from (px, py), all in single precision.
  /// @return 0; -1 for a vertical line, whose foot (x1, py) is given all the same
  int getFucosPos(float x1, float y1, float x2, float y2, float px, float py, float& fx, float& fy) const;

  /// dddmm.mmmm (degrees x 100 + minutes) to degrees, in single precision.
  float dm2Degree(float dm) const;
  /// Degrees to dddmm.mmmm, in single precision.
  float degree2Dm(float degree) const;
  /// Degrees to dddmm.mmmm, in double precision.
  double degree2Dm(double degree) const;

  /// Degrees to radians, computed in double and rounded to single precision.
  float toRadians(float degree) const;
  /// Radians to degrees, computed in double and rounded to single precision.
  float toBL(float radian) const;

  /// Gauss-Krueger projection, central meridian 108 E, false easting 500 km.
  /// @param B,L  latitude and longitude, degrees
  /// @param x,y  northing and easting, whole metres (rounded down)
  /// @return 0
  int BL2xy(float B, float L, float& x, float& y) const;

  /// Inverse projection; x and y are rounded down to whole metres first. Ends for every input.
  /// @return 0
  int xy2BL(float x, float y, float& B, float& L) const;

  /// Latitude comes first here. @return 1 outside the area in which GCJ-02 differs from WGS-84, else 0
  int outOfChina(float lat, float lon) const;

  /// Offset series of GCJ-02 in x = lon - 105, y = lat - 35. The running sum is rounded to single
  /// precision after each of its four stages.
  float transformLat(float x, float y) const;
  /// @copydoc transformLat
  float transformLon(float x, float y) const;

  /// WGS-84 to GCJ-02, degrees; longitude comes first.
  /// @return 0; -1 outside the area, where the outputs equal the inputs
  int gps84_2_gcj02(float lon, float lat, float& outLon, float& outLat) const;

  /// GCJ-02 to WGS-84, degrees, by one step of approximation and a constant 5e-6 degrees, which is added
  /// everywhere, outside the area too. Callers rely on it.
  /// @return 0
  int gcj02_2_gps84(float lon, float lat, float& outLon, float& outLat) const;

private:
  float m_a;    // semi-major axis, m
  float m_b;    // second axis constant, m
  float m_c1;   // meridian arc: metres per degree
  float m_c2;   // meridian arc: sin 2B
  float m_c3;   // meridian arc: sin 4B
  float m_c4;   // meridian arc: sin 6B
  float m_invF; // inverse flattening
  float m_L0;   // central meridian, degrees
  float m_e2;   // first eccentricity squared
  float m_ep2;  // second eccentricity squared; the projection derives its own from m_e2
  double m_pi;
  double m_ee; // eccentricity squared of GCJ-02
  float m_R;   // earth radius for distances, km
};
