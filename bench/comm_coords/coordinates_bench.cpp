// pt_in_poly against itself on a polygon of ten times the vertices; the ratio is how much longer that takes.

#include "comm_data/rounds.h"

#include <devcomm/coordinates.h>

#include <cmath>
#include <random>

namespace
{

std::vector<pos_t> star(int n)
{
  std::mt19937 random(5);
  std::vector<pos_t> poly;
  for (int i = 0; i < n; i++)
  {
    const double radius = 1 + static_cast<double>(random() % 1000) / 4000;
    poly.push_back({radius * std::cos(i * 2 * M_PI / n), radius * std::sin(i * 2 * M_PI / n)});
  }
  return poly;
}

auto job(std::vector<pos_t>& poly, int calls)
{
  return [&poly, calls]
  {
    const CCoordsCalculate coords;
    int inside = 0;
    for (int i = 0; i < calls; i++)
    {
      pos_t p = {i % 26 / 10.0 - 1.3, i % 25 / 10.0 - 1.2};
      inside += coords.pt_in_poly(poly.data(), static_cast<int>(poly.size()), &p);
    }
    keep(inside);
  };
}

} // namespace

int main()
{
  for (int n : {10, 100, 1000, 10000})
  {
    const int calls = std::max(650, 1000000 / n / 650 * 650);
    std::vector<pos_t> few = star(n);
    std::vector<pos_t> many = star(10 * n);
    const Medians times = alternate(9, job(few, calls), job(many, calls));
    printf("| pt_in_poly, %d vertices | itself at %d vertices | %.2f times the time | %.3g us, %.3g us |\n",
           n, 10 * n, times.theirs / times.ours, times.ours / calls * 1e6, times.theirs / calls * 1e6);
  }
  return 0;
}
