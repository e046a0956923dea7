#include <devcomm/round_buffer.h>

#include "internal/mutex_hold.h"
#include "internal/relaxed.h"

#include <cstring>
#include <new>

// RegisterUser, UnRegisterUser, GetLeftFrameCount and the first look of a read take no lock. The fields they touch
// (writeIndex, highIndex and the readers') are therefore read and written through relaxed accesses.

RoundBufMng::RoundBufMng(unsigned long size)
    : data(nullptr), capacity(0), writeOffset(0), frameIndex(), writeIndex(0), highIndex(0), iFrameIndex(),
      iFramePos(0), iFrameCount(0), lapCount(0), users(), m_bUseLock(false), mutex()
{
  users[0].readIndex = notPositioned;
  pthread_mutex_init(&mutex, nullptr);
  const auto bytes = static_cast<uint32_t>(size);
  data = bytes == size ? new (std::nothrow) unsigned char[bytes]() : nullptr;
  capacity = data != nullptr ? bytes : 0;
}

RoundBufMng::~RoundBufMng()
{
  delete[] data;
}

bool RoundBufMng::Known(UserType_e user)
{
  return static_cast<unsigned int>(user) < userCount;
}

pthread_mutex_t* RoundBufMng::Lock()
{
  return m_bUseLock ? &mutex : nullptr;
}

int RoundBufMng::RegisterUser(UserType_e user)
{
  if (!Known(user))
  {
    return -1;
  }
  Place(users[user], notPositioned, 0);
  relaxed_store<uint16_t>(users[user].registered, 1);
  return 0;
}

int RoundBufMng::UnRegisterUser(UserType_e user)
{
  if (!Known(user))
  {
    return -1;
  }
  relaxed_store<uint16_t>(users[user].registered, 0);
  return 0;
}

int RoundBufMng::PutFrameToBuffer(FrameInfo_t* info, int useFiller, void* source, void* context)
{
  if (info == nullptr || data == nullptr || (source == nullptr && (useFiller != 0 || info->length > 0)))
  {
    return 0;
  }
  const MutexHold hold(Lock());
  if (info->length > capacity)
  {
    return 0;
  }
  if (capacity - writeOffset < info->length)
  {
    EndLap();
  }
  const unsigned int slot = writeIndex;
  frameIndex[slot] = {info->frameClass, writeOffset, info->length, info->timeStamp,
                      static_cast<uint8_t>(info->frameType)};
  if (useFiller != 0)
  {
    reinterpret_cast<FrameFiller_t>(source)(context, data + writeOffset);
  }
  else if (info->length > 0)
  {
    memcpy(data + writeOffset, source, info->length);
  }
  writeOffset += frameIndex[slot].length;
  if (info->frameType == 1)
  {
    iFrameIndex[iFramePos] = static_cast<uint16_t>(slot);
    iFramePos++;
    iFrameCount = iFrameCount < iFramePos ? iFramePos : iFrameCount;
    if (iFramePos == keyCount)
    {
      iFramePos = 0;
    }
  }
  relaxed_store(writeIndex, static_cast<uint16_t>(slot + 1));
  if (highIndex < writeIndex)
  {
    relaxed_store(highIndex, writeIndex);
  }
  if (writeIndex == slotCount)
  {
    EndLap();
  }
  return 0;
}

void RoundBufMng::EndLap()
{
  lapCount++;
  relaxed_store(highIndex, writeIndex);
  relaxed_store<uint16_t>(writeIndex, 0);
  writeOffset = 0;
}

int RoundBufMng::GetLeftFrameCount(UserType_e user)
{
  if (!Known(user))
  {
    return -1;
  }
  const int write = relaxed_load(writeIndex);
  const int read = relaxed_load(users[user].readIndex);
  const int left = write >= read ? write - read : relaxed_load(highIndex) - read + write;
  return left > 0 ? left : 0;
}

bool RoundBufMng::NothingNew(const Reader& reader) const
{
  return relaxed_load(reader.readIndex) == relaxed_load(writeIndex);
}

// A reader that has come to the end of the lap before the writer's goes on at the start.
void RoundBufMng::NextLap(Reader& reader)
{
  const unsigned int read = relaxed_load(reader.readIndex);
  if (read >= highIndex && read > writeIndex)
  {
    Place(reader, 0, relaxed_load(reader.lapCount) + 1);
  }
}

int RoundBufMng::Adjust(Reader& reader)
{
  NextLap(reader);
  const unsigned int read = relaxed_load(reader.readIndex);
  if (read == 0 && writeIndex == 0)
  {
    return -2;
  }
  const uint32_t behind = lapCount - relaxed_load(reader.lapCount);
  const bool good = read < writeIndex ? behind == 0 : behind <= 1;
  if (good)
  {
    return 0;
  }
  PlaceOnNewest(reader);
  return -1;
}

int RoundBufMng::AdjustReadUserInfo(UserType_e user)
{
  if (!Known(user) || relaxed_load(users[user].registered) == 0)
  {
    return -1;
  }
  if (NothingNew(users[user]))
  {
    return -2;
  }
  const MutexHold hold(Lock());
  return Adjust(users[user]);
}

int RoundBufMng::GetFrameFromBuffer(UserType_e user, unsigned char** frame, FrameInfo_t* info)
{
  if (frame == nullptr || info == nullptr || !Known(user) || relaxed_load(users[user].registered) == 0)
  {
    return -1;
  }
  Reader& reader = users[user];
  if (NothingNew(reader))
  {
    return -2;
  }
  const MutexHold hold(Lock());
  const int result = Adjust(reader);
  if (result != 0)
  {
    return result;
  }
  const unsigned int read = relaxed_load(reader.readIndex);
  if (read >= slotCount)
  {
    return -1; // registered anew meanwhile
  }
  const Slot& slot = frameIndex[read];
  *frame = data + slot.offset;
  *info = {slot.timeStamp, slot.frameType, slot.frameClass, slot.length};
  if (slot.frameType == 1)
  {
    reader.lastIFrameTime = slot.timeStamp;
  }
  relaxed_store(reader.readIndex, static_cast<uint16_t>(read + 1));
  NextLap(reader);
  return 0;
}
