#include "frame_history.h"

#include "frame.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr UserType_e kReader = UserType_Playback;

// What the round buffer's filler gets and tells.
struct Filling
{
  const uint8_t* from;
  uint32_t length;
  uint8_t* to;
};

int fill(void* context, unsigned char* destination)
{
  auto* filling = static_cast<Filling*>(context);
  memcpy(destination, filling->from, filling->length);
  filling->to = destination;
  return 0;
}

} // namespace

FrameHistory::FrameHistory(uint32_t bytes) : frames_(std::make_unique<RoundBufMng>(bytes))
{
  frames_->RegisterUser(kReader);
}

void FrameHistory::put(const uint8_t* data, const FrameInfo_t& info)
{
  const CAutoLock guard(&lock_);
  FrameInfo_t copy = info;
  Filling filling = {data, info.length, nullptr};
  frames_->PutFrameToBuffer(&copy, 1, reinterpret_cast<void*>(fill), &filling);
  if (filling.to == nullptr)
    return;
  if (filling.to < written_)
    lapBegin_ = info.frameClass;
  written_ = filling.to + info.length;
}

uint32_t FrameHistory::last(int count, const Taker& take)
{
  const CAutoLock guard(&lock_);
  frames_->StartGetFrame(kReader, StartGetFrame_GoBack, std::clamp(count, 1, kMaxKeyFrames));
  uint32_t number = 0;
  unsigned char* data = nullptr;
  FrameInfo_t info = {};
  while (frames_->GetFrameFromBuffer(kReader, &data, &info) == 0)
  {
    const bool follows = number != 0 && info.frameClass == number + 1;
    if (!whole(info, data) || (!follows && info.frameType != kKeyFrame))
      continue;
    take(info, data);
    number = info.frameClass;
  }
  return number;
}

// The descriptors of the lap before outlive its bytes, which the lap being written overwrites from the start.
bool FrameHistory::whole(const FrameInfo_t& info, const uint8_t* data) const
{
  return info.frameClass >= lapBegin_ || data >= written_;
}
