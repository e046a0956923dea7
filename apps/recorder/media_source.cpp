#include "media_source.h"

#include "clock.h"
#include "dog.h"
#include "stream_rate.h"

#include <algorithm>
#include <cstdio>

namespace
{

constexpr size_t kPieceBytes = 32768;
constexpr int64_t kDefaultIntervalUs = 40000; // 25 frames a second, for streams that state no rate
constexpr int64_t kLongestNapUs = 100000;     // how soon a stop is noticed
constexpr int64_t kCatchUpUs = 1000000;       // more delay than this is not made up for

} // namespace

MediaSource::MediaSource(MediaInput& input, CCommBuffer& frames, FrameHistory& history)
    : input_(input), buffer_(frames), history_(history), splitter_(kMaxFrameBytes),
      intervalUs_(kDefaultIntervalUs)
{
}

void* MediaSource::PthreadProc()
{
  const Dog dog("media source");
  AccessUnit unit = {};
  while (GetStatus() != 0)
  {
    dog.feed();
    if (splitter_.next(unit))
      publish(unit);
    else if (!read_piece())
      break;
    dropped_ = static_cast<uint32_t>(splitter_.dropped());
  }
  ended_ = true;
  return nullptr;
}

// False when the stream is over.
bool MediaSource::read_piece()
{
  uint8_t piece[kPieceBytes];
  const ssize_t got = input_.read(piece, sizeof piece);
  if (got >= 0)
  {
    splitter_.push(piece, static_cast<size_t>(got));
    return true;
  }
  if (got == MediaInput::kError)
  {
    failed_ = true;
    return false;
  }
  AccessUnit last = {};
  if (splitter_.finish(last))
    publish(last);
  return start_over();
}

bool MediaSource::start_over()
{
  if (keyFrames_ == 0)
  {
    fprintf(stderr, "recorder: no H.264 key frame in %s\n", input_.name());
    failed_ = true;
    return false;
  }
  return input_.loops() && input_.rewind();
}

void MediaSource::publish(const AccessUnit& unit)
{
  if (input_.loops())
    wait_for_turn(unit);
  const AccessUnit frame = sets_.complete(unit, kMaxFrameBytes);
  FrameInfo_t info = {};
  info.frameType = frame.keyFrame ? kKeyFrame : 0;
  info.frameClass = frames_ + 1;
  info.length = static_cast<uint32_t>(frame.size);
  buffer_.PutData(const_cast<uint8_t*>(frame.data), &info);
  history_.put(frame.data, info);

  if (frame.keyFrame)
  {
    newestKey_ = info.frameClass;
    ++keyFrames_;
  }
  frames_ = info.frameClass;
}

// Waits until the frame is due, or the thread is to end. The rate may change with any key frame.
void MediaSource::wait_for_turn(const AccessUnit& unit)
{
  NalUnit sps = {};
  if (unit.keyFrame && find_nal(unit.data, unit.size, kNalSps, sps))
  {
    const int64_t stated = frame_interval_us(unit.data + sps.header, sps.end - sps.header);
    intervalUs_ = stated != 0 ? stated : kDefaultIntervalUs;
  }

  int64_t now = monotonic_us();
  while (now < dueUs_ && GetStatus() != 0)
  {
    nap_us(std::min(dueUs_ - now, kLongestNapUs));
    now = monotonic_us();
  }
  if (now - dueUs_ > kCatchUpUs)
    dueUs_ = now;
  dueUs_ += intervalUs_;
}
