#include <devcomm/coordinates.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace
{

CCoordsCalculate coords;

// Even-odd rule in whole numbers: the boundary belongs to the area, half-open edges never count twice.
int exact_even_odd(const std::vector<pos_t>& poly, const pos_t& p)
{
  bool inside = false;
  const auto px = static_cast<long>(p.x);
  const auto py = static_cast<long>(p.y);
  for (size_t i = 0; i < poly.size(); i++)
  {
    const pos_t& next = poly[(i + 1) % poly.size()];
    const auto ax = static_cast<long>(poly[i].x) - px;
    const auto ay = static_cast<long>(poly[i].y) - py;
    const auto bx = static_cast<long>(next.x) - px;
    const auto by = static_cast<long>(next.y) - py;
    const long cross = ax * by - bx * ay;
    if (cross == 0 && ax * bx <= 0 && ay * by <= 0)
      return 1;
    if ((ay > 0) != (by > 0) && (cross > 0) == (by > ay))
      inside = !inside;
  }
  return inside ? 1 : 0;
}

template <typename Item>
std::unique_ptr<char[]> record(int32_t count, size_t point_bytes, const void* points, size_t points_held)
{
  auto bytes = std::make_unique<char[]>(sizeof(Item) + point_bytes * points_held);
  memcpy(bytes.get(), &count, sizeof count);
  memcpy(bytes.get() + sizeof count, points, point_bytes * points_held);
  return bytes;
}

} // namespace

// Few lattice points make vertices on the ray, runs, spikes, repeated vertices and self-crossings common.
TEST(CoordsArea, PolygonEqualsTheExactEvenOddRuleOnEveryLatticePoint)
{
  std::mt19937 random(20240607);
  for (int round = 0; round < 3000; round++)
  {
    std::vector<pos_t> poly(3 + random() % 9);
    for (pos_t& vertex : poly)
      vertex = {static_cast<double>(random() % 6 * 2), static_cast<double>(random() % 5 * 2)};
    for (int at = 0; at < 13 * 11; at++)
    {
      pos_t p = {static_cast<double>(at % 13 - 1), static_cast<double>(at / 13 - 1)};
      ASSERT_EQ(coords.pt_in_poly(poly.data(), static_cast<int>(poly.size()), &p), exact_even_odd(poly, p))
          << "polygon " << round << " at " << p.x << "," << p.y;
    }
  }
}

// Every second vertex lies on the ray: walking each run again from each vertex would take minutes.
TEST(CoordsArea, PolygonAnswersInLinearTimeAndForNumbersThatAreNone)
{
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<pos_t> poly;
  for (int i = 0; i < 400000; i++)
    poly.push_back({10.0 + i, i < 399000 ? 0.0 : i % 2 * 2.0 - 1.0});
  pos_t p = {10.5, 0.25};
  const int n = static_cast<int>(poly.size());
  EXPECT_EQ(coords.pt_in_poly(poly.data(), n, &p), 0);
  p = {11.5, 0};
  EXPECT_EQ(coords.pt_in_poly(poly.data(), n, &p), 1);

  pos_t odd[] = {{0, 0}, {nan, 4}, {inf, -inf}, {4, 0}};
  for (pos_t at : {pos_t{1, 1}, pos_t{nan, 1}, pos_t{inf, inf}})
  {
    const int answer = coords.pt_in_poly(odd, 4, &at);
    EXPECT_TRUE(answer == 0 || answer == 1);
  }
  EXPECT_EQ(coords.pt_in_poly(odd, 2, odd), 0);
  EXPECT_EQ(coords.pt_in_poly(nullptr, 4, odd), 0);
}

TEST(CoordsArea, SegmentsTouchAndSidesAreStrict)
{
  pos_t a = {0, 0};
  pos_t b = {4, 2};
  pos_t on = {2, 1};
  pos_t beyond = {6, 3};
  pos_t above = {0, 2};
  pos_t below = {4, 0};
  EXPECT_EQ(coords.on_same_line(&a, &b, &on), 0);
  EXPECT_EQ(coords.on_same_line(&a, &b, &beyond), -1);
  EXPECT_EQ(coords.is_same(&a, &b, &above, &below), 0);
  EXPECT_EQ(coords.is_same(&a, &b, &above, &on), 0);
  EXPECT_EQ(coords.is_intersect(&a, &b, &above, &below), 1);
  EXPECT_EQ(coords.is_intersect(&a, &b, &above, &on), 1) << "a touch counts";
  EXPECT_EQ(coords.is_intersect(&a, &b, &above, &above), 0);
  EXPECT_EQ(coords.is_between(&a, &b, &on), 0);
  EXPECT_EQ(coords.is_between(&a, &b, &beyond), -1);
  pos_t foot = {};
  coords.calculate_intersection(&a, &b, &above, &foot);
  EXPECT_DOUBLE_EQ(foot.x, 0.8);
  EXPECT_DOUBLE_EQ(foot.y, 0.4);
  float fx = 0;
  float fy = 0;
  EXPECT_EQ(coords.getFucosPos(3, 0, 3, 9, 1, 5, fx, fy), -1);
  EXPECT_TRUE(fx == 3 && fy == 5);
  EXPECT_EQ(coords.getFucosPos(0, 2, 4, 2, 1, 5, fx, fy), 0);
  EXPECT_TRUE(fx == 1 && fy == 2);
  EXPECT_EQ(coords.getPos2lineDis(3, 0, 3, 9, 1, 5), 2.0F);
  EXPECT_FLOAT_EQ(coords.getPos2lineDis(0, 0, 4, 4, 0, 2), std::sqrt(2.0F));
}

TEST(CoordsArea, RecordsKeepTheirQuirksAndRefuseAbsurdCounts)
{
  gps_pos_t pos = {30, 30};
  round_item_t circle = {1000, {30, 77}};
  EXPECT_EQ(coords.in_round(&pos, &circle), 1) << "the centre is (lat, lat)";
  circle = {1000, {31, 30}};
  EXPECT_EQ(coords.in_round(&pos, &circle), 0);
  circle = {-1, {30, 30}};
  EXPECT_EQ(coords.in_round(&pos, &circle), 0);

  rect_item_t box = {{20, 20}, {40, 30}};
  EXPECT_EQ(coords.in_rect(&pos, &box), 0) << "on the side";
  box.corner2.lon = 31;
  EXPECT_EQ(coords.in_rect(&pos, &box), 1);
  std::swap(box.corner1, box.corner2);
  EXPECT_EQ(coords.in_rect(&pos, &box), 1);

  const gps_pos_t triangle[] = {{0, 0}, {0, 90}, {90, 0}};
  for (int32_t count : {3, 2, 0, -5, INT32_MIN, INT32_MAX})
  {
    auto bytes = record<poly_item_t>(count, sizeof(gps_pos_t), triangle, 3);
    EXPECT_EQ(coords.in_polygon(&pos, reinterpret_cast<poly_item_t*>(bytes.get())), count == 3 ? 1 : 0);
  }

  // 1 degree is about 111,195 m: the point is half a degree off the first segment, 20 off the second.
  const dot_point_t track[] = {{10, 10, 60000}, {10, 12, 1}, {60, 12, 1}};
  gps_pos_t near_track = {10, 11};
  for (int32_t count : {3, 1, 0, -7, INT32_MAX})
  {
    auto bytes = record<dot_item_t>(count, sizeof(dot_point_t), track, 3);
    auto* item = reinterpret_cast<dot_item_t*>(bytes.get());
    EXPECT_EQ(coords.in_line(&near_track, item), count == 3 ? 1 : 0);
    EXPECT_EQ(item->count, count < 1 ? 1 : count);
    EXPECT_EQ(coords.in_line(&pos, item), 0);
  }
  EXPECT_EQ(coords.pt_in_line({10, 10}, {12, 10}, {11, 10.5}, 60000), 1) << "beside the segment";
  EXPECT_EQ(coords.pt_in_line({10, 10}, {12, 10}, {12.5, 10}, 60000), 1) << "beyond its end";
  EXPECT_EQ(coords.pt_in_line({10, 10}, {10, 10}, {10, 10.6}, 60000), 0) << "a point for a segment";
}
