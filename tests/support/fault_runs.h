#pragma once

#include <algorithm>
#include <cstdlib>

/// How often a test breaks something at a random moment: DEVCOMM_FAULT_RUNS, or a few times.
inline int fault_runs()
{
  const char* wanted = getenv("DEVCOMM_FAULT_RUNS");
  return wanted != nullptr ? std::max(1, atoi(wanted)) : 20;
}
