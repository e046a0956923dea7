#pragma once

#include "clip_maker.h"
#include "control_server.h"
#include "event_bus.h"
#include "event_printer.h"
#include "folder_lock.h"
#include "frame_history.h"
#include "gps_line.h"
#include "gps_reader.h"
#include "journal.h"
#include "media_input.h"
#include "media_source.h"
#include "options.h"
#include "outbox.h"
#include "position.h"
#include "position_server.h"
#include "ring_writer.h"
#include "stall_watch.h"
#include "status.h"
#include "status_announcer.h"
#include "tracker.h"
#include "uploader.h"
#include "video_server.h"

#include <devcomm/frame_buffer.h>

/// All parts of the recorder and how they are joined. One thread at a time, save where it says otherwise.
class Recorder
{
public:
  explicit Recorder(const Options& options);

  /// Opens what the options name and starts everything.
  /// @return false when something cannot be had: one line on standard error has said what, and nothing runs
  bool start();

  /// Ends everything; takes a second or two, longer only if a connection hangs.
  /// @return false when a connection still runs: then the object must not be destroyed
  bool stop();

  /// Looks after the threads; to be called at least once a second.
  void watch()
  {
    stallWatch_.check();
  }

  /// Prints the status line, and announces it if that is wanted.
  void tell_status();

  /// The input is over: no frame follows.
  bool ended() const
  {
    return source_.ended();
  }

  /// The input could not be used; a line on standard error has said why.
  bool failed() const
  {
    return source_.failed();
  }

  int viewers() const
  {
    return videoServer_.viewers();
  }

private:
  bool open();
  bool start_parts();

  const Options options_;
  FolderLock folderLock_; // given up last

  // Where it is, and what happens.
  PositionBoard positions_;
  EventBus events_{positions_};
  Journal journal_;
  EventPrinter printer_;
  PositionServer positionServer_;
  Tracker tracker_{positions_, events_};
  GpsLine gpsLine_;
  GpsReader gpsReader_{gpsLine_, tracker_};

  // What it sees.
  MediaInput input_;
  CCommBuffer frames_;
  FrameHistory history_;
  MediaSource source_{input_, frames_, history_};
  VideoServer videoServer_{frames_, history_, source_};
  RingWriter ringWriter_{frames_};

  // What it sends away.
  Outbox outbox_;
  ClipMaker clipMaker_{history_, outbox_};
  Uploader uploader_{outbox_, journal_};

  // How it is doing, and who asks.
  const Status status_{source_, videoServer_, positions_, uploader_};
  ControlServer controlServer_{status_, events_, clipMaker_};
  StatusAnnouncer announcer_;
  StallWatch stallWatch_;
};
