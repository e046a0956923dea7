#include <devcomm/coordinates.h>

#include <cmath>

namespace
{

// 2 asin(sqrt(h)) of the haversine h; rounding may carry h past 1 for antipodes.
double central_angle(double lat1, double lon1, double lat2, double lon2, double pi)
{
  const double phi1 = lat1 * pi / 180.0;
  const double phi2 = lat2 * pi / 180.0;
  const double sin_lat = std::sin((phi1 - phi2) / 2);
  const double sin_lon = std::sin((lon1 * pi / 180.0 - lon2 * pi / 180.0) / 2);
  const double h = sin_lat * sin_lat + std::cos(phi1) * std::cos(phi2) * (sin_lon * sin_lon);
  const double root = std::sqrt(h);
  return 2 * std::asin(root > 1.0 ? 1.0 : root);
}

// Which side of the line a-b a point lies on; 0 on the line.
double side(const pos_t* a, const pos_t* b, const pos_t* p)
{
  return (p->x - a->x) * (b->y - a->y) - (b->x - a->x) * (p->y - a->y);
}

} // namespace

float CCoordsCalculate::calculateDistance(double lat1, double lon1, double lat2, double lon2) const
{
  return static_cast<float>(central_angle(lat1, lon1, lat2, lon2, m_pi) * 1000.0 * m_R);
}

float CCoordsCalculate::calculateDistance(pos_t* a, pos_t* b) const
{
  if (a == nullptr || b == nullptr)
    return 0.0F;
  const auto angle = static_cast<float>(central_angle(a->y, a->x, b->y, b->x, m_pi));
  return static_cast<float>(static_cast<double>(angle) * 1000.0 * m_R);
}

int CCoordsCalculate::on_same_line(pos_t* a, pos_t* b, pos_t* p) const
{
  if (a == nullptr || b == nullptr || p == nullptr)
    return -1;
  if ((p->x == a->x && p->y == a->y) || (p->x == b->x && p->y == b->y))
    return 0;
  if ((p->x < a->x && p->x < b->x) || (p->x > a->x && p->x > b->x))
    return -1;
  if ((p->y < a->y && p->y < b->y) || (p->y > a->y && p->y > b->y))
    return -1;
  return (a->x - p->x) * (b->y - p->y) == (b->x - p->x) * (a->y - p->y) ? 0 : -1;
}

int CCoordsCalculate::is_same(pos_t* a, pos_t* b, pos_t* p, pos_t* q) const
{
  if (a == nullptr || b == nullptr || p == nullptr || q == nullptr)
    return 0;
  return side(a, b, p) * side(a, b, q) > 0 ? 1 : 0;
}

int CCoordsCalculate::is_intersect(pos_t* a, pos_t* b, pos_t* c, pos_t* d) const
{
  if (a == nullptr || b == nullptr || c == nullptr || d == nullptr)
    return 0;
  return is_same(a, b, c, d) == 0 && is_same(c, d, a, b) == 0 ? 1 : 0;
}

int CCoordsCalculate::is_between(pos_t* a, pos_t* b, pos_t* p) const
{
  if (a == nullptr || b == nullptr || p == nullptr)
    return -1;
  const float whole = calculateDistance(a, b);
  return whole >= calculateDistance(a, p) && whole >= calculateDistance(p, b) ? 0 : -1;
}

void CCoordsCalculate::calculate_intersection(pos_t* a, pos_t* b, pos_t* p, pos_t* out) const
{
  if (a == nullptr || b == nullptr || p == nullptr || out == nullptr)
    return;
  if (a->x == b->x)
  {
    *out = {a->x, p->y};
    return;
  }
  if (a->y == b->y)
  {
    *out = {p->x, a->y};
    return;
  }
  const double k = (a->y - b->y) / (a->x - b->x);
  const double c = a->y - k * a->x;
  const double x = (p->x + k * p->y - k * c) / (k * k + 1);
  *out = {x, k * x + c};
}

float CCoordsCalculate::getPos2lineDis(float x1, float y1, float x2, float y2, float px, float py) const
{
  if (x1 == x2)
    return std::fabs(px - x1);
  const float k = (y1 - y2) / (x1 - x2);
  return std::fabs(k * px + (y1 - k * x1) - py) / std::sqrt(k * k + 1);
}

int CCoordsCalculate::getFucosPos(float x1, float y1, float x2, float y2, float px, float py, float& fx,
                                  float& fy) const
{
  if (x1 == x2)
  {
    fx = x1;
    fy = py;
    return -1;
  }
  if (y1 == y2)
  {
    fx = px;
    fy = y1;
    return 0;
  }
  const float k = (y1 - y2) / (x1 - x2);
  const float c = y1 - k * x1;
  fx = (px + k * py - k * c) / (k * k + 1);
  fy = k * fx + c;
  return 0;
}
