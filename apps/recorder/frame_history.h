#pragma once

#include <devcomm/frame_info.h>
#include <devcomm/lock.h>
#include <devcomm/round_buffer.h>

#include <cstdint>
#include <functional>
#include <memory>

/// Keeps the last laps of frames for those who ask for the past. Any thread.
class FrameHistory
{
public:
  /// Gets a frame; its bytes are good until the call returns.
  using Taker = std::function<void(const FrameInfo_t& info, const uint8_t* data)>;

  /// @param bytes  of frames that are kept
  explicit FrameHistory(uint32_t bytes);

  /// Adds the next frame. Its frameClass is its number, one above that of the frame before it.
  void put(const uint8_t* data, const FrameInfo_t& info);

  /// Hands out the frames from the count-th newest key frame on, oldest first; from a later key frame where that one
  /// is no longer there. No frame is added meanwhile.
  ///
  /// @param count  1 and more; taken as kMaxKeyFrames when above it
  /// @return number of the last frame handed out, 0 when there was none
  uint32_t last(int count, const Taker& take);

  static constexpr int kMaxKeyFrames = 15;

private:
  bool whole(const FrameInfo_t& info, const uint8_t* data) const;

  CLock lock_; // the round buffer lends out its own bytes: nobody may write while they are in use
  std::unique_ptr<RoundBufMng> frames_;
  const uint8_t* written_ = nullptr; // end of the newest frame's bytes
  uint32_t lapBegin_ = 0;            // number of the first frame of the lap being written
};
