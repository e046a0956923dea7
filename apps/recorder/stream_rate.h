#pragma once

#include <cstddef>
#include <cstdint>

/// Reads the time between two frames from an H.264 sequence parameter set (ITU-T H.264, 7.3.2.1 and E.1.1).
///
/// @param nal   the NAL unit from its header byte, emulation prevention bytes included; any bytes are safe
/// @param size  bytes
/// @return microseconds, 1,000 to 1,000,000; 0 when the set states no such rate or is damaged
int64_t frame_interval_us(const uint8_t* nal, size_t size);
