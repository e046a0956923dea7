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
  CLineBufMng rings[] = {CLineBufMng(37), CLineBufMng(0)};
  std::deque<char> models[2];
  for (int step = 0; step < 40000; step++)
  {
    CLineBufMng& ring = rings[step % 2];
    std::deque<char>& model = models[step % 2];
    char bytes[64];
    const auto n = static_cast<unsigned int>(random() % 48);
    const unsigned int held = std::min(n, static_cast<unsigned int>(model.size()));
    const unsigned int room = (step % 2 == 0 ? 37 : 0) - static_cast<unsigned int>(model.size());
    const auto op = random() % 8;
    if (op == 0)
    {
      ring.ClearAll();
      model.clear();
    }
    else if (op < 4)
    {
      ASSERT_EQ(op == 1 ? ring.Skip(n) : op == 2 ? ring.Read(bytes, n) : ring.PreRead(bytes, n), held);
      ASSERT_TRUE(op == 1 || std::equal(bytes, bytes + held, model.begin()));
      model.erase(model.begin(), model.begin() + (op == 3 ? 0 : held));
    }
    else
    {
      std::generate(bytes, bytes + n, [&] { return static_cast<char>(random()); });
      ASSERT_EQ(ring.Write(bytes, n), std::min(n, room));
      model.insert(model.end(), bytes, bytes + std::min(n, room));
    }
    ASSERT_EQ(ring.GetUsed(), model.size());
    ASSERT_EQ(ring.GetLeft(), (step % 2 == 0 ? 37 : 0) - static_cast<int>(model.size()));
  }
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
            bytes[i] = static_cast<char>((sent + i) % 251);
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
      wrong += bytes[i] != static_cast<char>(got % 251);
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
    EXPECT_EQ(fix_mem_get(pool), pool->blocks + 40 * i);
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
