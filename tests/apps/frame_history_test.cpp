#include "frame.h"
#include "frame_history.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

// The round buffer writes over the bytes of the lap before while its descriptors still stand: whatever is handed out
// must be whole, in order, and go up to the newest frame.
TEST(FrameHistoryTest, WhatItHandsOutIsWholeAndWithoutAGap)
{
  constexpr uint32_t kBytes = 20000;
  FrameHistory history(kBytes);
  EXPECT_EQ(history.last(1, [](const FrameInfo_t&, const uint8_t*) { FAIL(); }), 0U);

  std::mt19937 engine(7);
  const auto random = [&]
  {
    return static_cast<uint32_t>(engine());
  };
  std::vector<uint32_t> keys;
  std::vector<uint32_t> sizes(1);
  size_t asked_in_full = 0;
  for (uint32_t number = 1; number <= 5000; ++number)
  {
    const bool key = random() % 8 == 0;
    // Some laps have many small frames, others few large ones.
    const uint32_t size = number / 500 % 2 == 0 ? random() % 60 + 8 : random() % 900 + 8;
    const std::vector<uint8_t> data(size, static_cast<uint8_t>(number));
    FrameInfo_t info = {number, key ? kKeyFrame : 0, number, size};
    history.put(data.data(), info);
    sizes.push_back(size);
    if (key)
      keys.push_back(number);

    const size_t count = random() % 6 + 1;
    uint32_t first = 0;
    uint32_t before = 0;
    const auto take = [&](const FrameInfo_t& got, const uint8_t* bytes)
    {
      first = first == 0 ? got.frameClass : first;
      EXPECT_TRUE(before == 0 ? got.frameType == kKeyFrame : got.frameClass == before + 1) << number;
      EXPECT_EQ(got.length, sizes[got.frameClass]);
      for (uint32_t i = 0; i < got.length; ++i)
        ASSERT_EQ(bytes[i], static_cast<uint8_t>(got.frameClass));
      before = got.frameClass;
    };
    const uint32_t last = history.last(static_cast<int>(count), take);
    EXPECT_EQ(last, before);
    EXPECT_TRUE(last == 0 || last == number);
    asked_in_full += keys.size() >= count && first == keys[keys.size() - count] ? 1 : 0;
  }
  EXPECT_GT(asked_in_full, 4000U);
}
