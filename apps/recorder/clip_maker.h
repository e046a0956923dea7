#pragma once

#include "event_bus.h"
#include "frame_history.h"
#include "outbox.h"

#include <devcomm/thread.h>

#include <atomic>
#include <string>

/// Makes files of the outbox from the past: on demand, and by its thread whenever a geofence was entered or left.
class ClipMaker : public CommonCthread, public EventSink
{
public:
  /// Both must outlive the object.
  ClipMaker(FrameHistory& history, Outbox& outbox);

  /// Makes a file of the last key frames with what follows them. Any thread; takes as long as the disk.
  ///
  /// @param keyFrames  1 to FrameHistory::kMaxKeyFrames
  /// @param file       receives the file's name
  /// @return null when it is made, else why not
  const char* make(int keyFrames, std::string& file);

  void on_event(const Event& event) override;

  void* PthreadProc() override;

private:
  void make_wanted();

  FrameHistory& history_;
  Outbox& outbox_;
  std::atomic<bool> wanted_{false};
};
