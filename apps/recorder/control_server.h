#pragma once

#include "clip_maker.h"
#include "event_bus.h"
#include "status.h"

struct sockaddr_un;

/// Answers recorderctl: one datagram of text on a Unix-domain socket, one back.
///
///     status       the status line
///     stop         ends the recorder, as SIGTERM does
///     mark TEXT    makes an event of the text
///     clip [N]     makes a clip of the last N key frames
class ControlServer
{
public:
  /// All must outlive the server.
  ControlServer(const Status& status, EventBus& events, ClipMaker& clips);

  /// Call stop() first.
  ~ControlServer() = default;
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens for the recorder of that video port. @return false when that fails
  bool start(int port);

  /// Takes up to a second.
  void stop();

private:
  static int on_request(int sock, sockaddr_un* from, unsigned* fromLength, char* data, int length,
                        void* self);
  void make_clip(const char* count, char* text, size_t size);
  void answer(char* request, char* text, size_t size);

  const Status& status_;
  EventBus& events_;
  ClipMaker& clips_;
  char path_[256] = "";
  void* listener_ = nullptr;
};
