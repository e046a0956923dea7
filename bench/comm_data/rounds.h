#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

/// Runs two jobs in alternating rounds and keeps the median time of each, so that both see the same machine.
struct Medians
{
  double ours;   ///< seconds
  double theirs; ///< seconds
  double ratio;  ///< theirs to ours, round by round
};

template <typename Job>
double seconds_of(Job& job)
{
  const auto start = std::chrono::steady_clock::now();
  job();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double>& times)
{
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

template <typename Ours, typename Theirs>
Medians alternate(int rounds, Ours ours, Theirs theirs)
{
  ours();
  theirs();
  std::vector<double> a;
  std::vector<double> b;
  std::vector<double> ratios;
  for (int i = 0; i < rounds; ++i)
  {
    a.push_back(seconds_of(ours));
    b.push_back(seconds_of(theirs));
    ratios.push_back(b.back() / a.back());
  }
  return {median(a), median(b), median(ratios)};
}

/// Prints a table row with the speeds of both sides over the same number of bytes.
inline void print_row(const char* what, const char* against, double bytes, Medians times)
{
  printf("| %s | %s | %.2f | %.0f MB/s, %.0f MB/s |\n", what, against, times.ratio, bytes / times.ours / 1e6,
         bytes / times.theirs / 1e6);
  fflush(stdout);
}

/// Keeps a result alive, so that no job is optimised away.
template <typename T>
void keep(T& value)
{
  asm volatile("" : : "r"(&value) : "memory");
}
