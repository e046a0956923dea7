#pragma once

#include "media_source.h"
#include "position.h"
#include "uploader.h"
#include "video_server.h"

/// Tells how the recorder is doing, in one line. Any thread.
class Status
{
public:
  /// All must outlive the object.
  Status(const MediaSource& source, const VideoServer& server, const PositionBoard& positions,
         const Uploader& uploader);

  /// @param text  receives the line without an end, cut to size - 1 characters, terminated
  void write(char* text, size_t size) const;

private:
  const MediaSource& source_;
  const VideoServer& server_;
  const PositionBoard& positions_;
  const Uploader& uploader_;
};
