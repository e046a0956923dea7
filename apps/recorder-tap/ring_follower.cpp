#include "ring_follower.h"

#include "frame.h"

namespace
{

constexpr int kLost = -3; // of UserRead: the writer was faster

} // namespace

RingFollower::RingFollower(int key, int reader)
    : ring_(key, kRingBytes), reader_(reader), record_(std::make_unique<RingRecord>())
{
}

RingFollower::~RingFollower()
{
  ring_.UserUnRegister(reader_);
}

bool RingFollower::start()
{
  return ring_.UserRegisterEx(reader_) == 0;
}

const RingRecord* RingFollower::next()
{
  int got = 0;
  while ((got = ring_.UserRead(reader_, reinterpret_cast<unsigned char*>(record_.get()), sizeof *record_)) >
         0)
    if (static_cast<size_t>(got) == sizeof record_->info + record_->info.length && wanted())
      return record_.get();
  if (got == kLost)
    start(); // at the newest; the gap shows in the frame numbers
  return nullptr;
}

bool RingFollower::wanted()
{
  const uint32_t number = record_->info.frameClass;
  const bool key = record_->info.frameType == kKeyFrame;
  if (expected_ != 0 && number != expected_)
  {
    ++gaps_;
    expected_ = 0;
  }
  if (expected_ == 0 && !key)
    return false;
  expected_ = number + 1;
  return true;
}
