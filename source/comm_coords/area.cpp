#include <devcomm/coordinates.h>

#include <algorithm>
#include <memory>
#include <new>

namespace
{

// More vertices than any fence has: a count above it is garbage, and following it would read far past
// the record.
constexpr int32_t kMaxPoints = 1 << 20;

pos_t to_pos(uint32_t lat, uint32_t lon)
{
  return {static_cast<double>(lon), static_cast<double>(lat)};
}

pos_t to_pos(const gps_pos_t& pos)
{
  return to_pos(pos.lat, pos.lon);
}

// 1 above the horizontal through p, -1 below, 0 on it.
int level(const pos_t& vertex, const pos_t& p)
{
  return static_cast<int>(vertex.y > p.y) - static_cast<int>(vertex.y < p.y);
}

// For an edge that goes strictly from one side of the horizontal through p to the other, and does not
// contain p: whether it passes p on the right. The products are those of on_same_line, so that no point
// is both off the edge and on neither side of it.
bool passes_right(const pos_t& from, const pos_t& to, const pos_t& p)
{
  const double forth = (from.x - p.x) * (to.y - p.y);
  const double back = (to.x - p.x) * (from.y - p.y);
  return to.y > from.y ? forth > back : forth < back;
}

} // namespace

void CCoordsCalculate::vertices_get_extent(pos_t* pts, int n, rect_t* r) const
{
  if (r == nullptr)
    return;
  *r = {0, 0, 0, 0};
  if (pts == nullptr || n < 1)
    return;
  rect_t extent = {pts[0].x, pts[0].y, pts[0].x, pts[0].y};
  for (int i = 1; i < n; i++)
  {
    extent.minx = std::min(extent.minx, pts[i].x);
    extent.miny = std::min(extent.miny, pts[i].y);
    extent.maxx = std::max(extent.maxx, pts[i].x);
    extent.maxy = std::max(extent.maxy, pts[i].y);
  }
  *r = extent;
}

// Casts a ray from p to the right and counts the crossings of the boundary. A run of vertices on the
// ray's line is one crossing, if the boundary comes from one side and leaves to the other; p is on no
// edge, so a run lies wholly ahead of it or wholly behind it.
int CCoordsCalculate::pt_in_poly(pos_t* poly, int n, pos_t* p) const
{
  if (poly == nullptr || p == nullptr || n < 3)
    return 0;
  rect_t extent;
  vertices_get_extent(poly, n, &extent);
  if (!(p->x >= extent.minx && p->x <= extent.maxx && p->y >= extent.miny && p->y <= extent.maxy))
    return 0;

  // The level the boundary came from: that of the last vertex off the ray's line.
  int before = 0;
  for (int i = n - 1; i >= 0 && before == 0; i--)
    before = level(poly[i], *p);

  int crossings = 0;
  pos_t* from = &poly[n - 1];
  int from_level = level(*from, *p);
  for (int i = 0; i < n; i++)
  {
    pos_t* to = &poly[i];
    const int to_level = level(*to, *p);
    // An edge that stays on one side neither holds p nor crosses; nearly all do.
    if (to_level != from_level || to_level == 0)
    {
      if (on_same_line(from, to, p) == 0)
        return 1;
      if (to_level != 0 && before != 0)
      {
        const bool ahead = from_level == 0 ? from->x > p->x : passes_right(*from, *to, *p);
        if (to_level != before && ahead)
          crossings++;
        before = to_level;
      }
    }
    from = to;
    from_level = to_level;
  }
  return crossings & 1;
}

int CCoordsCalculate::pt_in_line(pos_t a, pos_t b, pos_t p, double width) const
{
  if (a.x == b.x && a.y == b.y)
    return calculateDistance(&p, &a) <= width ? 1 : 0;
  pos_t foot;
  calculate_intersection(&a, &b, &p, &foot);
  if (is_between(&a, &b, &foot) == 0)
    return calculateDistance(&p, &foot) <= width ? 1 : 0;
  return calculateDistance(&p, &a) <= width || calculateDistance(&p, &b) <= width ? 1 : 0;
}

int CCoordsCalculate::pt_in_round(pos_t* centre, double radius, pos_t* p) const
{
  if (centre == nullptr || p == nullptr)
    return 0;
  return calculateDistance(centre, p) <= radius ? 1 : 0;
}

int CCoordsCalculate::pt_in_rect(pos_t p, pos_t c1, pos_t c2) const
{
  const auto strictly_between = [](double value, double one, double other)
  {
    return one < other ? one < value && value < other : other < value && value < one;
  };
  return strictly_between(p.x, c1.x, c2.x) && strictly_between(p.y, c1.y, c2.y) ? 1 : 0;
}

int CCoordsCalculate::in_round(gps_pos_t* pos, round_item_t* item) const
{
  if (pos == nullptr || item == nullptr)
    return 0;
  // The centre's longitude is not read: existing fences were tuned against (lat, lat).
  pos_t centre = to_pos(item->centre.lat, item->centre.lat);
  pos_t p = to_pos(*pos);
  return pt_in_round(&centre, item->radius, &p);
}

int CCoordsCalculate::in_rect(gps_pos_t* pos, rect_item_t* item) const
{
  if (pos == nullptr || item == nullptr)
    return 0;
  return pt_in_rect(to_pos(*pos), to_pos(item->corner1), to_pos(item->corner2));
}

int CCoordsCalculate::in_polygon(gps_pos_t* pos, poly_item_t* item) const
{
  if (pos == nullptr || item == nullptr || item->count < 3 || item->count > kMaxPoints)
    return 0;
  const auto count = static_cast<size_t>(item->count);
  const std::unique_ptr<pos_t[]> poly(new (std::nothrow) pos_t[count]);
  if (poly == nullptr)
    return 0;
  const gps_pos_t* vertices = item->vertices;
  for (size_t i = 0; i < count; i++)
    poly[i] = to_pos(vertices[i]);
  pos_t p = to_pos(*pos);
  return pt_in_poly(poly.get(), item->count, &p);
}

int CCoordsCalculate::in_line(gps_pos_t* pos, dot_item_t* item) const
{
  if (pos == nullptr || item == nullptr || item->count > kMaxPoints)
    return 0;
  if (item->count < 1)
    item->count = 1; // written back: callers read the raised count
  const dot_point_t* points = item->points;
  const pos_t p = to_pos(*pos);
  for (int32_t i = 0; i + 1 < item->count; i++)
  {
    const pos_t a = to_pos(points[i].lat, points[i].lon);
    const pos_t b = to_pos(points[i + 1].lat, points[i + 1].lon);
    if (pt_in_line(a, b, p, points[i].width) != 0)
      return 1;
  }
  return 0;
}
