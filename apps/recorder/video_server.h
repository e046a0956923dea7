#pragma once

#include "frame_history.h"
#include "media_source.h"

#include <devcomm/frame_buffer.h>
#include <devcomm/tcp_service.h>

#include <atomic>
#include <cstdint>

/// Serves the frames to every TCP viewer, through a reader of its own, beginning at the newest key frame.
///
/// Each viewer's work is done on the thread of its connection, so none delays another. While a viewer does not
/// take its bytes, at most kQueueBytes and one frame wait for it here and its further frames stay in the frame
/// buffer. When it is more than kMaxFramesBehind frames late, or its frames have left the buffer, it loses what
/// lies before the newest key frame and goes on there. When the input ends, a viewer is disconnected once it has
/// everything.
///
/// A viewer may begin with the line "LAST N": it then gets the last N key frames (1 to FrameHistory::kMaxKeyFrames)
/// with what follows them, and goes on live. For the line's sake live video begins kAskUs after the connection; a
/// later one still takes the viewer back, once. The past waits here until the viewer has taken it, so while
/// kMaxAsking viewers have not, another who asks gets live video alone. All else that viewers send is ignored.
class VideoServer
{
public:
  /// All must outlive the server's connections.
  VideoServer(CCommBuffer& frames, FrameHistory& history, const MediaSource& source);

  /// Call stop() first.
  ~VideoServer();

  VideoServer(const VideoServer&) = delete;
  VideoServer& operator=(const VideoServer&) = delete;

  /// Listens on port on all addresses. @return false when that fails
  bool start(int port);

  /// Asks the listening to end, without waiting, so that several servers can end at a time. stop() is still to be
  /// called.
  void ask_stop();

  /// Stops listening and ends the connections; takes up to a second, longer only if a connection hangs.
  /// @return false when a connection still runs: then nothing that it uses may be freed
  bool stop();

  int viewers() const;

  /// Bytes queued for viewers so far.
  uint64_t bytes() const
  {
    return bytes_;
  }

  /// Frames that viewers have missed so far.
  uint64_t dropped() const
  {
    return dropped_;
  }

  static constexpr int kMaxViewers = 256;
  static constexpr int kQueueBytes = 256 * 1024;
  static constexpr uint32_t kMaxFramesBehind = 75;
  static constexpr int64_t kAskUs = 200000;
  static constexpr int kMaxAsking = 4;

private:
  struct Viewer;

  static int on_event(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* server,
                      tcp_client_st* client, void* arg);
  int open_viewer(tcp_client_st* client);
  void close_viewer(tcp_client_st* client);
  int hear(Viewer& viewer, tcp_client_st* client, const char* data, int length);
  void send_past(Viewer& viewer, tcp_client_st* client, int keyFrames);
  void end_asking(Viewer& viewer);
  void seek_key_frame(int reader);
  void send_frames(Viewer& viewer, tcp_client_st* client);
  bool wanted(Viewer& viewer, const FrameInfo_t& info);
  void send_frame(Viewer& viewer, tcp_client_st* client, const FrameInfo_t& info, const uint8_t* data);

  CCommBuffer& frames_;
  FrameHistory& history_;
  const MediaSource& source_;
  tcp_server_st* server_;
  bool listening_ = false;
  std::atomic<uint64_t> bytes_{0};
  std::atomic<uint64_t> dropped_{0};
  std::atomic<int> asking_{0}; // viewers who have not taken all of the past yet
};
