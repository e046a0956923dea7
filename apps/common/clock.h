#pragma once

#include <cstdint>

/// Microseconds of the clock that nobody sets.
int64_t monotonic_us();

/// Microseconds since 1970, UTC.
int64_t wall_clock_us();

/// Sleeps; a signal may end it early.
void nap_us(int64_t us);
