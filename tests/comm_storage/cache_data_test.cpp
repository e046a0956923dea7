#include "comm_storage/card.h"

#include <climits>
#include <memory>

#include <sys/stat.h>

namespace
{

constexpr int kSlots = 4;
constexpr size_t kSlotSize = 1032;
constexpr size_t kFileSize = 44 + kSlots * kSlotSize;

std::string head_bytes(int read, int write, int count)
{
  return words(0xA1B2C3D5, read, write, count, 1032) + std::string(24, '\0');
}

std::string slot_bytes(int tag, const std::string& data)
{
  std::string bytes = words(tag, data.size()) + data;
  bytes.resize(kSlotSize);
  return bytes;
}

const std::string kFresh = head_bytes(0, 0, kSlots) + std::string(kSlots * kSlotSize - 1, '\0') + "0";

} // namespace

class CacheRing : public CardTest
{
protected:
  // A process without the rights of root could not open its own file again.
  int open(int count = kSlots)
  {
    chmod(path.c_str(), 0600);
    ring = std::make_unique<CCacheData>();
    ring->setCacheFile("cache", 0, count);
    return ring->openCacheFile(card.c_str());
  }
  std::unique_ptr<CCacheData> ring;
};

TEST_F(CacheRing, LaysItsFileOutByteForByte)
{
  EXPECT_EQ(open(0), 0);
  EXPECT_EQ(bytes().size(), 2113580u);
  struct stat info = {};
  stat(path.c_str(), &info);
  EXPECT_EQ(info.st_mode & 07777, 0200u);
  said();
  const int fd = open();
  EXPECT_GT(fd, 0);
  EXPECT_EQ(said(), "CCacheData::OpenCacheFile(" + path +
                        ") CACHE_FILE_LENGTH(4172) != nFileLength(2113580)\nCCacheData::Init Cache File(" +
                        path + ") open start\nCCacheData::Init Cache open end fd:" + std::to_string(fd) +
                        "\nCCacheData::InitCacheFile(" + path + ") Success\n");
  EXPECT_EQ(bytes(), kFresh);

  const std::string longest(1024, 'x');
  save_in(*ring, -2, "hello", true);
  save_in(*ring, 0x01020304, longest, false);
  EXPECT_EQ(bytes(), head_bytes(0, 1, kSlots) + slot_bytes(-2, "hello") + slot_bytes(0x01020304, longest) +
                         kFresh.substr(44 + 2 * kSlotSize));
  save_in(*ring, 3, "", false);
  save_in(*ring, 4, "four", true);
  EXPECT_EQ(said(), "CCacheData::SaveCacheData(cache) Buffer Full WritePos(0) ReadPos(1)\n");
  EXPECT_EQ(read_from(*ring, true), "16909060:" + longest);
  EXPECT_EQ(read_from(*ring, false), "3:");
  EXPECT_EQ(bytes().substr(0, 44), head_bytes(2, 0, kSlots));
  ring->updateHead();
  EXPECT_EQ(bytes().substr(0, 44), head_bytes(3, 0, kSlots));
  EXPECT_GT(open(), 0);
  EXPECT_EQ(said(), "CCacheData::OpenCacheFile(" + path + ") Success WritePos(0) ReadPos(3)\n");
  EXPECT_EQ(read_from(*ring, false), "4:four");
  EXPECT_EQ(read_from(*ring, false), "none");
}

TEST_F(CacheRing, MakesADamagedFileAfreshAndTrustsNoLength)
{
  open();
  save_in(*ring, 5, "kept", true);
  const std::string good = bytes();
  for (size_t at = 0; at < 44; ++at)
  {
    for (int value = 0; value < 256; ++value)
    {
      std::string changed = good;
      changed[at] = static_cast<char>(value);
      put(changed);
      const bool sound = changed == good || at >= 20 || ((at == 4 || at == 8) && value < kSlots);
      ASSERT_GT(open(), 0);
      ASSERT_EQ(bytes(), sound ? changed : kFresh) << at << " " << value;
      const bool empty = !sound || changed[4] == changed[8];
      ASSERT_EQ(read_from(*ring, false), empty             ? "none"
                                         : changed[4] == 0 ? "5:kept"
                                                           : "0:")
          << at << " " << value;
    }
  }
  for (const size_t middle : {size_t{2}, size_t{44}, 44 + kSlotSize, kFileSize})
  {
    for (size_t length = middle - 2; length <= middle + 2; ++length)
    {
      put((good + "more").substr(0, length));
      ASSERT_GT(open(), 0);
      ASSERT_EQ(bytes(), length == kFileSize ? good : kFresh) << length;
    }
  }
  put(head_bytes(0, 1, kSlots + 1) + good.substr(44));
  said();
  open();
  const std::string refusal = ") m_CacheHead.nVersion(A1B2C3D5) != CACHE_FILE_VERSION(A1B2C3D5) "
                              "CacheCount(5!=4) CacheLen(1032!=1032)\n";
  EXPECT_NE(said().find(refusal), std::string::npos);
  for (const int len : {-1, INT_MIN, 1025, INT_MAX})
  {
    put(head_bytes(0, 1, 2) + words(9, len) + std::string(1024 + kSlotSize, 'd'));
    EXPECT_GT(open(2), 0);
    EXPECT_EQ(read_from(*ring, true), "9:" + std::string(len < 0 ? 0 : 1024, 'd')) << len;
  }
}

TEST_F(CacheRing, RefusesWhatItCannotKeep)
{
  open();
  EXPECT_EQ(ring->openCacheFile(root.path.c_str()), -1);
  EXPECT_EQ(ring->openCacheFile(nullptr), -1);
  const std::string much(1025, 'x');
  save_in(*ring, 1, much, true);
  ring->saveCacheData(1, -1, much.data(), true);
  ring->saveCacheData(1, 1, nullptr, true);
  EXPECT_EQ(bytes(), kFresh);
  ring->saveCacheData(1, 0, nullptr, true);
  int tag = 0;
  EXPECT_EQ(ring->readCacheData(tag, tag, nullptr, true), 0);
  EXPECT_EQ(read_from(*ring, true), "1:");
  const int fd = ring->initCacheFile();
  EXPECT_EQ(ring->initCacheFile(), fd) << "left a descriptor open";
  ring->setCacheFile(nullptr, 0, 1);
  save_in(*ring, 2, "an open file keeps its size", true);
  EXPECT_EQ(read_from(*ring, true), "2:an open file keeps its size");

  said();
  EXPECT_EQ(ring->openCacheFile((card + "/none").c_str()), -1);
  EXPECT_NE(said().find("\n---------->[openCacheFile]:53 initCacheFile fail \n"), std::string::npos);
  EXPECT_EQ(ring->CheckCacheFileExist(), 0);
}

TEST_F(CacheRing, StandsAFileThatChangesBelowIt)
{
  open();
  save_in(*ring, 1, "first", true);
  ASSERT_EQ(truncate(path.c_str(), 44 + kSlotSize - 1), 0);
  said();
  EXPECT_EQ(read_from(*ring, true), "none");
  EXPECT_EQ(said(), "CCacheData::ReadCacheData read data failed\n");
  EXPECT_EQ(ring->CheckCacheFileExist(), 0);
  save_in(*ring, 2, "nothing happens", true);
  ring->updateHead();
  EXPECT_EQ(bytes().size(), 44 + kSlotSize - 1);

  const int fd = open();
  ASSERT_EQ(truncate(path.c_str(), kFileSize + 1), 0);
  unlink(path.c_str());
  save_in(*ring, 3, "has no name any more", true);
  EXPECT_EQ(read_from(*ring, false), "3:has no name any more");
  save_in(*ring, 4, "", true);
  close(fd);
  said();
  EXPECT_EQ(read_from(*ring, true), "none");
  save_in(*ring, 5, "", true);
  EXPECT_EQ(said(), "CCacheData::ReadCacheData lseek(1076) ret(-1) failed\n"
                    "CCacheData::SaveCacheData(cache) write data failed\n");
  EXPECT_EQ(ring->CheckCacheFileExist(), 0);
  EXPECT_EQ(open(), 0);
}
