#include <devcomm/round_buffer.h>

#include "support/measure.h"

#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

namespace
{
// The object is too large for a stack.
std::unique_ptr<RoundBufMng> make_buffer(unsigned long size)
{
  auto buffer = std::make_unique<RoundBufMng>(size);
  buffer->RegisterUser(UserType_Live);
  return buffer;
}

// Frames carry their number as time stamp and in every byte.
void put(RoundBufMng& buffer, uint64_t number, uint32_t length, uint32_t type = 0)
{
  FrameInfo_t info = {number, type, 7, length};
  std::string payload(length, static_cast<char>(number));
  ASSERT_EQ(buffer.PutFrameToBuffer(&info, 0, payload.data(), nullptr), 0);
}

// The number of the next frame; 0 or less when there is none.
int64_t get(RoundBufMng& buffer, UserType_e user = UserType_Live)
{
  unsigned char* frame = nullptr;
  FrameInfo_t info;
  const int result = buffer.GetFrameFromBuffer(user, &frame, &info);
  if (result != 0)
    return result;
  const std::string payload(reinterpret_cast<char*>(frame), info.length);
  EXPECT_EQ(payload, std::string(info.length, static_cast<char>(info.timeStamp)));
  EXPECT_EQ(info.frameClass, 7U);
  return static_cast<int64_t>(info.timeStamp);
}

int64_t start_and_get(RoundBufMng& buffer, int mode, int count = 0)
{
  EXPECT_EQ(buffer.StartGetFrame(UserType_Live, mode, count), 0);
  return get(buffer);
}

int fill_with_a(void* context, unsigned char* destination)
{
  memset(destination, 'A', *static_cast<size_t*>(context));
  return 0;
}
} // namespace

TEST(RoundBuffer, AReaderThatKeepsUpGetsEveryFrameWholeLapAfterLap)
{
  std::mt19937 random(32);
  auto buffer = make_buffer(100000);
  buffer->ResetUserInfo(UserType_Live);
  for (int64_t number = 1, next = 1; number <= 50000; number++)
  {
    // Long frames end laps by room, short ones by the table.
    put(*buffer, uint64_t(number), uint32_t(random() % (number / 20000 % 2 == 0 ? 2000 : 3)));
    for (; number % 5 == 0 && next <= number; next++)
    {
      ASSERT_EQ(buffer->GetLeftFrameCount(UserType_Live), number - next + 1);
      ASSERT_EQ(get(*buffer), next);
    }
  }
  EXPECT_EQ(get(*buffer), -2);
}

TEST(RoundBuffer, ALappedReaderIsToldOnceAndGetsTheNewest)
{
  auto buffer = make_buffer(1000);
  buffer->ResetUserInfo(UserType_Live);
  for (uint64_t number = 1; number <= 25; number++)
    put(*buffer, number, 100);
  EXPECT_EQ(get(*buffer), -1);
  EXPECT_EQ(get(*buffer), 25);
  EXPECT_EQ(get(*buffer), -2);

  auto table = make_buffer(1 << 20);
  table->ResetUserInfo(UserType_Live);
  for (uint64_t number = 1; number <= 6000; number++)
    put(*table, number, 1, number == 1);
  EXPECT_EQ(get(*table), -2); // exactly one lap behind looks like caught up
  put(*table, 6001, 1);
  EXPECT_EQ(table->GetLeftFrameCount(UserType_Live), 1);
  EXPECT_EQ(get(*table), -1); // slot 0 holds 6001 now: a lap was missed
  EXPECT_EQ(get(*table), 6001);
}

TEST(RoundBuffer, StartsAtKeyFrames)
{
  auto buffer = make_buffer(1 << 20);
  CaptureStderr();
  for (uint64_t number = 1; number <= 300; number++)
    put(*buffer, number, 10, number % 10 == 1 ? 1 : number % 10 == 2 ? 257 : 0); // 257 is no key frame
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_Latest), 291);
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_GoBack, 3), 271);
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_GoBack, 40), 151);
  buffer->CalculateReadIndexByTime(UserType_Live, 31);
  EXPECT_EQ(get(*buffer), 1);

  for (uint64_t number = 301; number <= 991; number++)
    put(*buffer, number, 10, number == 301 || number == 302 ? 1 : 0);
  buffer->CalculateReadIndexByTime(UserType_Live, 13);
  EXPECT_EQ(get(*buffer), 191);
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_Resume),
            192);                             // 800 behind; 257 in 8 bits reads as a key frame
  EXPECT_EQ(start_and_get(*buffer, 77), 192); // backed up from 193
  put(*buffer, 992, 10);
  put(*buffer, 993, 10);
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_Resume), 302); // 801 behind
  EXPECT_EQ(GetCapturedStderr(),
            "Iframeindex = 29, I frame index = 290\nIframeindex = 31, I frame index = 301\n");
}

TEST(RoundBuffer, GoingBackOverTheStartOfTheRingTakesItToBe49Long)
{
  auto buffer = make_buffer(550);
  for (uint64_t number = 1; number <= 107; number++)
    put(*buffer, number, 10, 1); // 52 of them in this lap; the ring starts anew at number 101
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_GoBack, 7), 101);
  EXPECT_EQ(start_and_get(*buffer, StartGetFrame_GoBack, 8), 99);
}

TEST(RoundBuffer, FillersWriteInPlaceAndNothingLongerThanTheAreaIsStored)
{
  auto buffer = make_buffer(64);
  buffer->ResetUserInfo(UserType_Live);
  FrameInfo_t info = {'A', 1, 7, 65};
  size_t length = 64;
  auto* filler = reinterpret_cast<void*>(&fill_with_a);
  buffer->PutFrameToBuffer(&info, 1, filler, &length);
  EXPECT_EQ(get(*buffer), -2);
  info.length = 64;
  buffer->PutFrameToBuffer(&info, 1, filler, &length);
  EXPECT_EQ(get(*buffer), 'A');
  EXPECT_EQ(buffer->PutFrameToBuffer(nullptr, 0, nullptr, nullptr), 0);

  unsigned char* frame = nullptr;
  EXPECT_EQ(get(*buffer, UserType_Record), -1);
  EXPECT_EQ(buffer->StartGetFrame(UserType_Record, 0, 0), -1);
  EXPECT_EQ(buffer->GetFrameFromBuffer(UserType_Live, nullptr, &info), -1);
  EXPECT_EQ(buffer->GetFrameFromBuffer(UserType_Live, &frame, nullptr), -1);
  for (const int wrong : {3, 255, -1})
  {
    EXPECT_EQ(buffer->RegisterUser(UserType_e(wrong)) + buffer->UnRegisterUser(UserType_e(wrong)), -2);
    EXPECT_EQ(buffer->ResetUserInfo(UserType_e(wrong)) + buffer->AdjustReadUserInfo(UserType_e(wrong)), -2);
  }
}

TEST(RoundBuffer, OddPositionsAndCountsStayWithinTheTables)
{
  CaptureStderr();
  for (const uint32_t type : {0U, 1U})
  {
    auto buffer = make_buffer(100);
    for (uint64_t number = 0; number < 13; number++)
    {
      for (const int mode : {0, 1, 2, 3, -1})
      {
        for (const int count : {INT_MIN, -50, 0, 16, 49, 51, INT_MAX})
        {
          buffer->RegisterUser(UserType_Live);
          buffer->CalculateReadIndexByTime(UserType_Live, count);
          get(*buffer);
          buffer->StartGetFrame(UserType_Live, mode, count);
          get(*buffer);
        }
      }
      put(*buffer, number, 30, type);
    }
  }
  GetCapturedStderr();
}

TEST(RoundBuffer, WithItsLockOnThreadsMaySeekAndReadBesideTheWriter)
{
  auto buffer = make_buffer(1 << 16);
  buffer->m_bUseLock = true;
  std::thread writer(
      [&]
      {
        for (uint64_t number = 1; number <= 20000; number++)
          put(*buffer, number, 64, number % 25 == 1);
      });
  CaptureStderr();
  for (FrameInfo_t info = {}; info.timeStamp < 20000;)
  {
    unsigned char* frame = nullptr;
    if (buffer->GetFrameFromBuffer(UserType_Live, &frame, &info) == -2)
      buffer->StartGetFrame(UserType_Live, StartGetFrame_GoBack, 1);
    EXPECT_LE(buffer->GetLeftFrameCount(UserType_Live), 6000);
  }
  GetCapturedStderr();
  writer.join();
}
