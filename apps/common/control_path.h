#pragma once

#include <cstddef>
#include <cstdio>

/// Longest request and longest answer, in bytes.
constexpr int kControlBytes = 1024;

/// Where the recorder with that video port listens for requests.
inline void control_path(int port, char* path, size_t size)
{
  snprintf(path, size, "/tmp/recorder-%d.sock", port);
}
