#include <devcomm/block_pool.h>
#include <devcomm/line_buffer.h>

#include <gtest/gtest.h>

#include <climits>
#include <deque>
#include <random>
#include <string>
#include <thread>

TEST(LineBuffer, BehavesAsAQueueOfBytesUnderRandomCalls)
{
  std::mt19937 random(34);
  CLineBufMng ring(37);
  std::deque<char> model;
  for (int step = 0; step < 20000; step++)
  {
    char bytes[64];
    const auto n = static_cast<unsigned int>(random() % 48);
    const auto held = static_cast<unsigned int>(model.size());
    switch (random() % 8)
    {
    case 0:
      ring.ClearAll();
      model.clear();
      break;
    case 1:
      ASSERT_EQ(ring.Skip(n), std::min(n, held));
      model.erase(model.begin(), model.begin() + std::min(n, held));
      break;
    case 2:
    case 3:
    {
      const bool peek = random() % 2 == 0;
      ASSERT_EQ(peek ? ring.PreRead(bytes, n) : ring.Read(bytes, n), std::min(n, held));
      ASSERT_TRUE(std::equal(bytes, bytes + std::min(n, held), model.begin()));
      model.erase(model.begin(), model.begin() + (peek ? 0 : std::min(n, held)));
      break;
    }
    default:
      std::generate(bytes, bytes + n, [&] { return static_cast<char>(random()); });
      ASSERT_EQ(ring.Write(bytes, n), std::min(n, 37 - held));
      model.insert(model.end(), bytes, bytes + std::min(n, 37 - held));
    }
    ASSERT_EQ(ring.GetUsed(), model.size());
    ASSERT_EQ(ring.GetLeft(), 37 - static_cast<int>(model.size()));
  }
}

TEST(LineBuffer, WithoutRoomItHoldsNothing)
{
  CLineBufMng none(0);
  char byte = 'x';
  EXPECT_EQ(none.Write(&byte, 1) + none.Read(&byte, 1) + none.PreRead(&byte, 1) + none.Skip(1), 0U);
  EXPECT_EQ(none.GetLeft(), 0);
}

TEST(LineBuffer, KeepsTheOrderBetweenTwoThreads)
{
  CLineBufMng ring(1000);
  constexpr unsigned int total = 100000;
  std::thread writer(
      [&]
      {
        for (unsigned int sent = 0; sent < total;)
        {
          char bytes[300];
          const unsigned int n = std::min(total - sent, sent % 300 + 1);
          for (unsigned int i = 0; i < n; i++)
          {
            bytes[i] = static_cast<char>((sent + i) % 251);
          }
          sent += ring.Write(bytes, n);
          std::this_thread::yield();
        }
      });
  unsigned int got = 0;
  unsigned int wrong = 0;
  while (got < total)
  {
    char bytes[177];
    EXPECT_LE(ring.GetUsed(), 1000U);
    for (unsigned int n = ring.Read(bytes, sizeof bytes), i = 0; i < n; i++, got++)
    {
      wrong += bytes[i] != static_cast<char>(got % 251);
    }
    std::this_thread::yield();
  }
  writer.join();
  EXPECT_EQ(wrong, 0U);
}

TEST(BlockPool, LendsAllButOneAndTakesBackTheOldestWhateverIsGiven)
{
  fixed_mem_t* pool = fix_mem_init(40, 1);
  ASSERT_NE(pool, nullptr);
  ASSERT_EQ(pool->count, 8);
  char* first = static_cast<char*>(fix_mem_get(pool));
  EXPECT_EQ(first, pool->blocks + 40);
  EXPECT_EQ(fix_mem_put(pool, first), 0); // the only one out: not taken back
  for (size_t i = 2; i <= 7; i++)
  {
    EXPECT_EQ(fix_mem_get(pool), pool->blocks + 40 * i);
  }
  EXPECT_EQ(fix_mem_get(pool), nullptr);
  fix_mem_put(pool, nullptr);
  EXPECT_EQ(fix_mem_get(pool), pool->blocks);
  EXPECT_EQ(fix_mem_get(pool), nullptr);
  EXPECT_EQ(fix_mem_quit(pool), 0);
}

TEST(BlockPool, RefusesSizesThatCannotBe)
{
  EXPECT_EQ(fix_mem_init(0, 8), nullptr);
  EXPECT_EQ(fix_mem_init(-8, 8), nullptr);
  EXPECT_EQ(fix_mem_init(1, INT_MAX), nullptr);
  for (const int n : {0, -1, INT_MIN})
  {
    fixed_mem_t* empty = fix_mem_init(16, n);
    EXPECT_EQ(fix_mem_get(empty), nullptr);
    EXPECT_EQ(fix_mem_put(empty, nullptr), 0);
    fix_mem_quit(empty);
  }
  EXPECT_EQ(fix_mem_get(nullptr), nullptr);
  EXPECT_EQ(fix_mem_put(nullptr, nullptr) + fix_mem_quit(nullptr), 0);
}
