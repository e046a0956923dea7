#pragma once

#include "annexb_splitter.h"
#include "frame.h"
#include "frame_history.h"
#include "media_input.h"
#include "parameter_sets.h"

#include <devcomm/frame_buffer.h>
#include <devcomm/thread.h>

#include <atomic>
#include <cstdint>

/// The thread that reads the input, cuts it into frames and puts them into the frame buffer and the history.
///
/// Frames are numbered from 1 and carry their number in frameClass (no reader filters by class), so that a reader
/// sees how many it has missed. Time stamps are those of the moment a frame is put into the buffer.
///
/// Start it with Start(name); Stop() ends and joins it. The counters may be read by any thread.
class MediaSource : public CommonCthread
{
public:
  /// All must outlive the thread; input is used by it alone while it runs.
  MediaSource(MediaInput& input, CCommBuffer& frames, FrameHistory& history);

  void* PthreadProc() override;

  /// Number of the newest frame, which is also the count of frames so far. A reader finds a frame in the buffer
  /// no later than it finds its number here.
  uint32_t frames() const
  {
    return frames_;
  }

  /// Number of the newest key frame; 0 before the first.
  uint32_t newest_key_frame() const
  {
    return newestKey_;
  }

  uint32_t key_frames() const
  {
    return keyFrames_;
  }

  /// Frames that were too large to pass on, with those that refer to them.
  uint32_t dropped() const
  {
    return dropped_;
  }

  /// The input has ended or failed: no frame follows.
  bool ended() const
  {
    return ended_;
  }

  /// The input could not be used; a line on standard error has said why.
  bool failed() const
  {
    return failed_;
  }

private:
  bool read_piece();
  bool start_over();
  void publish(const AccessUnit& unit);
  void wait_for_turn(const AccessUnit& unit);

  MediaInput& input_;
  CCommBuffer& buffer_;
  FrameHistory& history_;
  AnnexBSplitter splitter_;
  ParameterSets sets_;
  int64_t intervalUs_; // between two frames of an input that loops
  int64_t dueUs_ = 0;  // when the next one is to be put into the buffer, on the monotonic clock; 0: at once

  std::atomic<uint32_t> frames_{0};
  std::atomic<uint32_t> newestKey_{0};
  std::atomic<uint32_t> keyFrames_{0};
  std::atomic<uint32_t> dropped_{0};
  std::atomic<bool> ended_{false};
  std::atomic<bool> failed_{false};
};
