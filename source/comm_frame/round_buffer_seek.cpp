// Putting readers on key frames. All but the two entry points runs under the lock, where there is one.

#include <devcomm/round_buffer.h>

#include "internal/mutex_hold.h"
#include "internal/relaxed.h"

#include <algorithm>
#include <cstdio>

namespace
{
constexpr int resumeLimit = 800;  // frames a reader may be behind and still go on where it stopped
constexpr int goBackLimit = 15;   // key frames
constexpr int keyFrame = 1;       // frameType
constexpr int backwardsRing = 49; // length the key-frame ring is taken to have when going back over its start

uint32_t lap_before(uint32_t lap)
{
  return lap > 0 ? lap - 1 : 0;
}
} // namespace

void RoundBufMng::Place(Reader& reader, unsigned int slot, uint32_t lap)
{
  relaxed_store(reader.lapCount, lap);
  relaxed_store(reader.readIndex, static_cast<uint16_t>(slot));
}

void RoundBufMng::PlaceAtWriter(Reader& reader)
{
  Place(reader, writeIndex, lapCount);
}

void RoundBufMng::PlaceOnNewest(Reader& reader)
{
  Place(reader, writeIndex > 0 ? writeIndex - 1U : 0U, lapCount);
}

int RoundBufMng::ResetUserInfo(UserType_e user)
{
  if (!Known(user))
  {
    return -1;
  }
  const MutexHold hold(Lock());
  PlaceAtWriter(users[user]);
  return 0;
}

int RoundBufMng::CalculateReadIndexByTime(UserType_e user, int count)
{
  if (!Known(user))
  {
    return -1;
  }
  const MutexHold hold(Lock());
  PlaceOnKey(users[user], count);
  return 0;
}

int RoundBufMng::StartGetFrame(UserType_e user, int mode, int count)
{
  if (!Known(user) || relaxed_load(users[user].registered) == 0)
  {
    return -1;
  }
  Reader& reader = users[user];
  const MutexHold hold(Lock());
  if (mode == StartGetFrame_GoBack)
  {
    PlaceOnKey(reader, std::min(count, goBackLimit));
  }
  else if (mode == StartGetFrame_Latest || (mode == StartGetFrame_Resume && !MayResume(reader)))
  {
    PlaceOnLatestKey(reader);
  }
  else
  {
    BackUpToKey(reader);
  }
  return 0;
}

void RoundBufMng::PlaceOnKey(Reader& reader, int count)
{
  const int64_t back = count;
  int64_t k = iFramePos - back;
  if (lapCount != 0)
  {
    k = back > iFramePos ? iFramePos + backwardsRing - back : k;
  }
  else
  {
    k = iFrameCount < back || back > iFramePos ? 0 : k;
  }
  unsigned int slot = iFrameIndex[std::clamp<int64_t>(k, 0, keyCount - 1)];
  if (frameIndex[slot].frameType != keyFrame)
  {
    slot = iFrameIndex[iFramePos];
  }
  Place(reader, slot, writeIndex <= slot ? lap_before(lapCount) : lapCount);
}

void RoundBufMng::PlaceOnLatestKey(Reader& reader)
{
  int k = iFramePos - 1;
  if (iFramePos == 0)
  {
    k = lapCount != 0 ? iFrameCount - 1 : 0;
  }
  if (k < 0)
  {
    PlaceAtWriter(reader); // a lap has gone by without a key frame
    return;
  }
  const unsigned int slot = iFrameIndex[k];
  fprintf(stderr, "Iframeindex = %d, I frame index = %d\n", k, static_cast<int>(slot));
  if (frameIndex[slot].frameType != keyFrame)
  {
    PlaceOnNewest(reader);
    return;
  }
  Place(reader, slot, slot >= writeIndex ? lap_before(lapCount) : lapCount);
}

bool RoundBufMng::MayResume(const Reader& reader) const
{
  const int read = relaxed_load(reader.readIndex);
  const auto behind = static_cast<int32_t>(lapCount - relaxed_load(reader.lapCount));
  if (read == notPositioned || behind > 1)
  {
    return false;
  }
  if (behind == 1)
  {
    return writeIndex < read && read < highIndex && highIndex - read + writeIndex <= resumeLimit;
  }
  return behind < 0 || (read <= writeIndex && writeIndex - read <= resumeLimit);
}

void RoundBufMng::BackUpToKey(Reader& reader)
{
  unsigned int slot = relaxed_load(reader.readIndex);
  unsigned int steps = highIndex;
  while (steps > 0 && slot < slotCount && frameIndex[slot].frameType != keyFrame)
  {
    slot = slot > 0 ? slot - 1 : highIndex - 1U;
    steps--;
  }
  if (steps == 0 || slot >= slotCount)
  {
    PlaceAtWriter(reader);
    return;
  }
  Place(reader, slot, slot < writeIndex ? lapCount : lap_before(lapCount));
}
