#include "comm_storage/card.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <thread>
#include <vector>

namespace
{

constexpr int kUnread = 0x5A5A;
constexpr size_t kItemSize = 524;

std::string item_bytes(int mark, int tag, const std::string& data)
{
  std::string bytes = words(mark, tag, data.size()) + data;
  bytes.resize(kItemSize);
  return bytes;
}

} // namespace

class CacheFile : public CardTest
{
protected:
  void put(const std::string& all)
  {
    file.reset(); // it writes its buffer out
    CardTest::put(all);
  }
  void open()
  {
    file = std::make_unique<CCacheDataEX>(10);
    file->SetFileName(path.data());
  }
  int save(int tag, const std::string& text)
  {
    return save_in(*file, tag, text);
  }
  std::string read()
  {
    return read_from(*file);
  }

  std::unique_ptr<CCacheDataEX> file;
};

TEST_F(CacheFile, LaysItsRecordsOutByteForByte)
{
  open();
  EXPECT_EQ(file->checkCacheData(), -1);
  EXPECT_EQ(read(), "none");
  const std::string longest(512, 'x');
  EXPECT_EQ(save(-3, "three"), 0);
  EXPECT_EQ(save(4, longest), 0);
  EXPECT_EQ(file->saveCacheData(5, 0, nullptr), 0);
  EXPECT_EQ(save(6, longest + "y"), -1);
  EXPECT_EQ(file->saveCacheData(6, -1, longest.data()), -1);
  EXPECT_EQ(file->saveCacheData(6, 1, nullptr), -1);
  int tag = 0;
  EXPECT_EQ(file->readCacheData(tag, tag, nullptr), -1);
  EXPECT_EQ(read(), "-3:three");
  EXPECT_EQ(said(), "cache file path=" + path +
                        "\nm_FileHead.ulTotalItemNum = 0\nm_FileHead.ulReadItemNum = 0\n"
                        "data exceed the max length: 513(512)\n");

  std::string prefix = path.substr(0, path.size() - 1);
  file->SetFileName(prefix.data());
  file->SetFileName(nullptr);
  EXPECT_EQ(file->checkCacheData(), 2);
  EXPECT_EQ(file->RemoveCacheFile(), -1);
  EXPECT_EQ(file->CloseCacheFile(), 0);
  EXPECT_EQ(bytes(),
            item_bytes(0, -3, "three") + item_bytes(kUnread, 4, longest) + item_bytes(kUnread, 5, ""));
  EXPECT_EQ(file->OpenCacheFile(), 0);
  EXPECT_EQ(said(), "m_FileHead.ulTotalItemNum = 3\nm_FileHead.ulReadItemNum = 1\n");
  EXPECT_EQ(file->checkCacheData(), 2);

  std::string other = path + "2";
  file->SetFileName(other.data());
  EXPECT_EQ(file->checkCacheData(), -1);
  EXPECT_EQ(file->RemoveCacheFile(), -1) << "is not there";
  EXPECT_EQ(said(), "cache file path=" + other + "\n");
  EXPECT_EQ(save(1, "one"), 0);
  file->CloseCacheFile();
  EXPECT_EQ(file->RemoveCacheFile(), 0);
  EXPECT_EQ(bytes().size(), 3 * kItemSize);
}

TEST_F(CacheFile, TrustsNoMarkAndNoLength)
{
  const std::string good = item_bytes(kUnread, 1, "first") + item_bytes(kUnread, 2, "second");
  for (size_t at = 0; at < 4; ++at)
  {
    for (int value = 0; value < 256; ++value)
    {
      std::string changed = good;
      changed[at] = static_cast<char>(value);
      put(changed);
      open();
      ASSERT_EQ(read(), changed == good ? "1:first" : "2:second") << at << " " << value;
    }
  }
  for (const int len : {-1, INT_MIN, 513, INT_MAX})
  {
    const std::string damaged = words(kUnread, 9, len) + std::string(512, 'd');
    put(damaged + good);
    open();
    EXPECT_EQ(read(), "9:" + std::string(len < 0 ? 0 : 512, 'd')) << len;
    file->CloseCacheFile();
    EXPECT_EQ(bytes(), words(0) + damaged.substr(4) + good);
  }
  for (const size_t middle : {size_t{2}, kItemSize, 2 * kItemSize})
  {
    for (size_t length = middle - 2; length <= middle + 2; ++length)
    {
      put((good + "more").substr(0, length));
      open();
      const size_t whole = length / kItemSize;
      ASSERT_EQ(save(3, "third"), 0);
      ASSERT_EQ(file->checkCacheData(), static_cast<int>(whole + 1));
      file->CloseCacheFile();
      ASSERT_EQ(bytes(), good.substr(0, whole * kItemSize) + item_bytes(kUnread, 3, "third")) << length;
    }
  }
}

TEST_F(CacheFile, DeletesAFileThatIsTooBig)
{
  for (const off_t length : {off_t{52399999}, off_t{52400000}, off_t{5} << 30})
  {
    put(item_bytes(kUnread, 1, "first"));
    ASSERT_EQ(truncate(path.c_str(), length), 0);
    open();
    said();
    EXPECT_EQ(file->OpenCacheFile(), 0);
    if (length < 52400000)
    {
      EXPECT_EQ(file->checkCacheData(), 99999);
      continue;
    }
    EXPECT_EQ(said(), "m_FileHead.ulTotalItemNum = " + std::to_string(length / 524) +
                          "\nfile is too big FileLen = " + std::to_string(static_cast<uint32_t>(length)) +
                          "\n========>>>Delete cache file " + path + "\n");
    EXPECT_EQ(file->checkCacheData(), -1);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(save(2, "anew"), 0);
    EXPECT_EQ(read(), "2:anew");
  }
}

TEST_F(CacheFile, StandsAFileThatChangesBelowIt)
{
  open();
  for (int i = 0; i < 20; ++i)
    save(i, "record");
  file->OpenCacheFile();
  ASSERT_EQ(truncate(path.c_str(), kItemSize + 1), 0);
  int buffered = 0; // in the stream, which knows of no truncation
  while (read() == std::to_string(buffered) + ":record")
    ++buffered;
  EXPECT_LT(buffered, 20);
  EXPECT_EQ(file->checkCacheData(), -1);
  EXPECT_EQ(file->RemoveCacheFile(), 0);

  EXPECT_EQ(save(3, "third"), 0);
  ASSERT_EQ(truncate(path.c_str(), 10 * kItemSize), 0);
  unlink(path.c_str());
  EXPECT_EQ(read(), "3:third");
  EXPECT_EQ(read(), "none");
  put("");
  for (std::string bad : {card, path + "/file"})
  {
    open();
    file->SetFileName(bad.data());
    EXPECT_EQ(file->checkCacheData(), -1);
    file = std::make_unique<CCacheDataEX>();
    file->SetFileName(bad.data());
    EXPECT_EQ(file->OpenCacheFile(), -1);
    EXPECT_EQ(save(6, ""), -1);
    EXPECT_EQ(read(), "none");
  }
}

// Two threads save, two read: nothing is lost, comes twice or is mixed up.
TEST_F(CacheFile, BothCachesServeSeveralThreads)
{
  constexpr int kEach = 300;
  CCacheData ring;
  ring.setCacheFile("ring", 0, 0);
  ring.openCacheFile(card.c_str());
  open();
  std::atomic<int> seen[2 * kEach] = {};
  std::atomic<int> left{2 * kEach};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t)
  {
    threads.emplace_back(
        [&, t]
        {
          for (int i = t * kEach; i < (t + 1) * kEach; ++i)
            EXPECT_EQ(save(i, std::to_string(i)), 0);
        });
    threads.emplace_back(
        [&]
        {
          while (left > 0 && file->checkCacheData() >= -1)
          {
            std::string record = read(); // from the file to the ring, and out of that
            if (record != "none")
              save_in(ring, stoi(record), record);
            record = read_from(ring);
            if (record != "none")
            {
              const std::string id = record.substr(0, record.find(':'));
              EXPECT_EQ(record, id + ":" + id + ":" + id);
              ++seen[stoi(id)];
              --left;
            }
          }
        });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_TRUE(std::all_of(seen, seen + 2 * kEach, [](int times) { return times == 1; }));
}
