#include "clip_maker.h"

#include "clock.h"
#include "dog.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace
{

constexpr int kEventKeyFrames = 3;
constexpr int64_t kPauseUs = 100000;

} // namespace

ClipMaker::ClipMaker(FrameHistory& history, Outbox& outbox) : history_(history), outbox_(outbox) {}

const char* ClipMaker::make(int keyFrames, std::string& file)
{
  if (!outbox_.is_open())
    return "the recorder keeps no data";
  std::vector<uint8_t> bytes; // the disk may be slow, and no frame is added to the history meanwhile
  history_.last(keyFrames, [&bytes](const FrameInfo_t& info, const uint8_t* data)
                { bytes.insert(bytes.end(), data, data + info.length); });
  if (bytes.empty())
    return "there is no key frame yet";
  file = "clip.h264";
  return outbox_.put(bytes, file) ? nullptr : "the outbox or its disk is full";
}

void ClipMaker::on_event(const Event& event)
{
  if (strcmp(event.kind, "enter") == 0 || strcmp(event.kind, "leave") == 0)
    wanted_ = true;
}

void* ClipMaker::PthreadProc()
{
  const Dog dog("clip maker");
  while (GetStatus() != 0)
  {
    dog.feed();
    make_wanted();
    nap_us(kPauseUs);
  }
  make_wanted(); // of an event just before the end
  return nullptr;
}

void ClipMaker::make_wanted()
{
  if (!wanted_.exchange(false))
    return;
  std::string file;
  const char* why = make(kEventKeyFrames, file);
  if (why != nullptr)
    fprintf(stderr, "recorder: no clip: %s\n", why);
}
