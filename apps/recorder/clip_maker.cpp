#include "clip_maker.h"

#include "clock.h"
#include "dog.h"

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
  return outbox_.put(bytes, file) ? nullptr : "the outbox is full";
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
    std::string file;
    if (wanted_.exchange(false))
      make(kEventKeyFrames, file);
    nap_us(kPauseUs);
  }
  return nullptr;
}
