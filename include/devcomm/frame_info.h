#pragma once

/// @file
/// The descriptor that accompanies every frame in the frame buffers.

#include <cstddef>
#include <cstdint>

/// Five 32-bit words without padding, in the byte order of the machine: arrays have a stride of 20 bytes on
/// every machine, whatever alignment its 64-bit integers ask for.
#pragma pack(push, 4)
struct FrameInfo_t
{
  uint64_t timeStamp;  ///< capture time, microseconds since the epoch; 0 on a write: stamped by the buffer
  uint32_t frameType;  ///< kind of frame; 1 is a key frame
  uint32_t frameClass; ///< a second classification, 0..31 where readers filter on it
  uint32_t length;     ///< payload bytes
};
#pragma pack(pop)

static_assert(sizeof(FrameInfo_t) == 20, "callers index arrays of descriptors by 20 bytes");
static_assert(offsetof(FrameInfo_t, frameType) == 8 && offsetof(FrameInfo_t, frameClass) == 12 &&
                  offsetof(FrameInfo_t, length) == 16,
              "five consecutive words");
