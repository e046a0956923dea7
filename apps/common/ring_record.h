#pragma once

#include "frame.h"

#include <devcomm/frame_info.h>

/// A record of the shared-memory ring: the frame's descriptor, whose frameClass is the frame's number, and its bytes.
struct RingRecord
{
  FrameInfo_t info;
  uint8_t data[kMaxFrameBytes];
};

/// Bytes of the ring.
constexpr int kRingBytes = 4 * static_cast<int>(kMaxFrameBytes);
