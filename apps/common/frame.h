#pragma once

#include <cstdint>

/// Type of a key frame in FrameInfo_t; other frames have type 0.
constexpr uint32_t kKeyFrame = 1;

/// Largest frame that is passed on, in bytes.
constexpr uint32_t kMaxFrameBytes = 1024 * 1024;
