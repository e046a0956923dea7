#pragma once

#include <cstddef>
#include <cstdint>

/// The built-in clip: an H.264 byte stream in the program's read-only data.
struct Clip
{
  const uint8_t* data;
  size_t size;
};

Clip builtin_clip();
