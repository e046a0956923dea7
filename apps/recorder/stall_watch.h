#pragma once

#include <cstdint>
#include <set>

/// Looks after the threads that have a Dog: names each that stalls, once, on standard error. One thread at a time.
class StallWatch
{
public:
  /// To be called at least once a second.
  void check();

private:
  std::set<int32_t> named_;
};
