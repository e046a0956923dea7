#include "video_server.h"

#include "clock.h"
#include "dog.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include <sys/socket.h>

namespace
{

constexpr int kTimeoutMs = 60000; // a viewer that takes nothing for so long is gone
constexpr int kViewerSlot = 0;    // of the connection's private data
constexpr int kFramesPerEvent = 256;
constexpr int kLineBytes = 64; // a viewer's line is shorter

// What waits in the kernel cannot be taken back, so it must not be much.
constexpr int kSocketBytes = 256 * 1024;

} // namespace

// One connection's place in the stream.
struct VideoServer::Viewer
{
  int reader = -1;
  uint32_t next = 0;      // number of the frame that follows the last one taken note of; 0 before the first
  uint32_t soughtKey = 0; // key frame that the reader was last moved to
  bool awaitKey = true;   // nothing decodes before a key frame
  bool asking = false;    // not all of the past has left yet
  bool asked = false;     // its line has come
  int64_t liveUs = monotonic_us() + kAskUs; // when live video begins without one
  Dog dog{"viewer"};
  std::unique_ptr<uint8_t[]> frame;
};

VideoServer::VideoServer(CCommBuffer& frames, FrameHistory& history, const MediaSource& source)
    : frames_(frames), history_(history), source_(source), server_(ServerInit())
{
}

VideoServer::~VideoServer()
{
  ServerUninit(server_);
}

bool VideoServer::start(int port)
{
  listening_ =
      server_ != nullptr && ServerStartListen(server_, port, kTimeoutMs, kMaxViewers, on_event, this) == 0;
  return listening_ && ServerGetStatus(server_) != 0;
}

void VideoServer::ask_stop()
{
  if (listening_)
    ThreadSetStatus(server_->thread, 0);
}

bool VideoServer::stop()
{
  if (listening_)
    ServerStopListen(server_);
  listening_ = false;
  return ServerGetConnCount(server_) == 0;
}

int VideoServer::viewers() const
{
  return ServerGetConnCount(server_);
}

int VideoServer::on_event(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* /*server*/,
                          tcp_client_st* client, void* arg)
{
  auto* self = static_cast<VideoServer*>(arg);
  if (state == SERVICE_STATE_START)
    return self->open_viewer(client);
  if (state == SERVICE_STATE_CLOSE)
  {
    self->close_viewer(client);
    return 0;
  }
  auto* viewer = static_cast<Viewer*>(ClientGetPrivateData(client, kViewerSlot));
  viewer->dog.feed();
  if (state == SERVICE_STATE_RECV)
    return self->hear(*viewer, client, data, len);
  if (monotonic_us() < viewer->liveUs)
    return 0;
  const bool ended = self->source_.ended(); // asked first: after it, no frame can be missed
  self->send_frames(*viewer, client);
  return ended && state == SERVICE_STATE_IDLE && ClientGetSendBufSize(client) == 0 ? -1 : 0;
}

int VideoServer::open_viewer(tcp_client_st* client)
{
  std::unique_ptr<Viewer> viewer(new (std::nothrow) Viewer);
  if (viewer == nullptr)
    return -1;
  viewer->frame.reset(new (std::nothrow) uint8_t[kMaxFrameBytes]);
  if (viewer->frame == nullptr)
    return -1;
  viewer->reader = frames_.Register(0, 0);
  if (viewer->reader < 0)
    return -1;
  seek_key_frame(viewer->reader);
  setsockopt(client->sock, SOL_SOCKET, SO_SNDBUF, &kSocketBytes, sizeof kSocketBytes);
  ClientSetPrivateData(client, kViewerSlot, viewer.release());
  return 0;
}

void VideoServer::close_viewer(tcp_client_st* client)
{
  std::unique_ptr<Viewer> viewer(static_cast<Viewer*>(ClientGetPrivateData(client, kViewerSlot)));
  ClientSetPrivateData(client, kViewerSlot, nullptr);
  if (viewer == nullptr)
    return;
  end_asking(*viewer);
  frames_.Unregister(viewer->reader);
}

// Takes the viewer's first line. @return bytes used up
int VideoServer::hear(Viewer& viewer, tcp_client_st* client, const char* data, int length)
{
  if (viewer.asked)
    return length;
  char line[kLineBytes + 1];
  const auto* end = static_cast<const char*>(memchr(data, '\n', static_cast<size_t>(length)));
  if (end == nullptr && length < kLineBytes)
    return 0;
  viewer.asked = true;
  viewer.liveUs = 0;
  const size_t used =
      end == nullptr ? 0 : static_cast<size_t>(std::min<std::ptrdiff_t>(end - data, kLineBytes));
  memcpy(line, data, used);
  line[used] = '\0';
  int keyFrames = 0;
  if (sscanf(line, "LAST %9d", &keyFrames) == 1 && keyFrames > 0)
    send_past(viewer, client, keyFrames);
  return length;
}

void VideoServer::send_past(Viewer& viewer, tcp_client_st* client, int keyFrames)
{
  viewer.asking = true;
  if (++asking_ > kMaxAsking)
    return end_asking(viewer);
  const auto take = [&](const FrameInfo_t& info, const uint8_t* data)
  {
    viewer.awaitKey = viewer.awaitKey && info.frameType != kKeyFrame;
    if (!viewer.awaitKey)
      send_frame(viewer, client, info, data);
  };
  const uint32_t last = history_.last(keyFrames, take);
  // The reader stands at an earlier frame: those up to the last one will be passed over as seen.
  if (last != 0)
    viewer.next = last + 1;
}

void VideoServer::end_asking(Viewer& viewer)
{
  asking_ -= viewer.asking ? 1 : 0;
  viewer.asking = false;
}

// Puts a reader a little before the newest key frame: the source may be adding a frame right now, and frames before
// the key frame are passed over anyway. While there are few frames a new reader is right where it stands.
void VideoServer::seek_key_frame(int reader)
{
  // Asked in this order, the key frame is beyond the newest frame by one at the most.
  const uint32_t key = source_.newest_key_frame();
  const uint32_t newest = source_.frames();
  const uint32_t unread = newest - key + 2;
  if (newest > unread)
    frames_.Seek(reader, 0, unread);
}

void VideoServer::send_frames(Viewer& viewer, tcp_client_st* client)
{
  if (ClientGetSendBufSize(client) < kQueueBytes)
    end_asking(viewer);
  FrameInfo_t info = {};
  for (int i = 0; i < kFramesPerEvent && ClientGetSendBufSize(client) < kQueueBytes; ++i)
  {
    if (frames_.Read(viewer.reader, viewer.frame.get(), &info) == 0)
      return;
    if (wanted(viewer, info))
      send_frame(viewer, client, info, viewer.frame.get());
  }
}

// Takes note of the frame's place in the stream; false when the viewer has no use for it.
bool VideoServer::wanted(Viewer& viewer, const FrameInfo_t& info)
{
  const uint32_t number = info.frameClass;
  const uint32_t newestKey = source_.newest_key_frame();
  const bool joining = viewer.next == 0;
  const bool late = number < newestKey && source_.frames() - number > kMaxFramesBehind;
  // A reader whose frames have left the buffer stands at the newest one, maybe beyond the key frame it needs.
  const bool beyondKey = !joining && number > newestKey && newestKey >= viewer.next;
  if ((late || beyondKey) && viewer.soughtKey != newestKey)
  {
    viewer.soughtKey = newestKey;
    seek_key_frame(viewer.reader);
    return false; // the frame counts as missed when the next one is read
  }

  if (!joining && static_cast<int32_t>(number - viewer.next) < 0)
    return false; // seen before the reader was moved
  const uint32_t missed = joining ? 0 : number - viewer.next;
  const bool lost = late || ((viewer.awaitKey || missed > 0) && info.frameType != kKeyFrame);
  viewer.awaitKey = lost;
  if (joining && lost)
    return false; // what precedes a new viewer's first key frame is no loss
  dropped_ += missed + (lost ? 1 : 0);
  viewer.next = number + 1;
  return !lost;
}

void VideoServer::send_frame(Viewer& viewer, tcp_client_st* client, const FrameInfo_t& info,
                             const uint8_t* data)
{
  const int before = ClientGetSendBufSize(client);
  const auto length = static_cast<int>(info.length);
  ClientSendData(client, reinterpret_cast<const char*>(data), length, 0);
  // Only this thread sends, so the queue has grown by the frame unless there was no memory for it.
  if (ClientGetSendBufSize(client) - before == length)
    bytes_ += info.length;
  else
  {
    viewer.awaitKey = true;
    ++dropped_;
  }
}
