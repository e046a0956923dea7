// Both caches on a card that is full, and then read-only: a small file system in a namespace of the test's own.

#include "comm_storage/card.h"
#include "comm_time/child.h"

#include <devcomm/cache_file.h>

#include <sched.h>
#include <sys/mount.h>

namespace
{

// Each gives 0, or a bit for what went wrong.
int fill_ring(const char* card)
{
  CCacheData ring;
  ring.setCacheFile("ring", 0, 0);
  int faults = ring.openCacheFile(card) == 0 ? 0 : 1;
  int saved = -1;
  for (; ring.CheckCacheFileExist() == 1; ++saved)
  {
    ring.saveCacheData(saved + 1, 6, "record", true);
  }
  faults |= saved > 8 && ring.openCacheFile(card) > 0 ? 0 : 2;
  int tag = 0;
  int len = 0;
  char data[1024];
  for (int i = 0; i < saved; ++i)
  {
    faults |= ring.readCacheData(tag, len, data, true) == 1 && tag == i ? 0 : 4;
  }
  faults |= ring.readCacheData(tag, len, data, true) == 0 ? 0 : 8;
  ring.setCacheFile("another", 0, 0);
  return faults | (ring.openCacheFile(card) == -1 && ring.CheckCacheFileExist() == 0 ? 0 : 16);
}

int fill_file(std::string path)
{
  CCacheDataEX file;
  file.SetFileName(path.data());
  int saved = 0;
  while (file.saveCacheData(saved, 6, "record") == 0)
  {
    ++saved;
  }
  int faults = saved > 20 && file.checkCacheData() == -1 ? 0 : 32;
  int tag = 0;
  int len = 0;
  char data[512];
  for (int i = 0; i < saved - 1; ++i) // the last one stood in the stream's buffer
  {
    faults |= file.readCacheData(tag, len, data) == 0 && tag == i ? 0 : 64;
  }
  return faults | (file.readCacheData(tag, len, data) == -1 ? 0 : 64);
}

int open_read_only(const char* card, std::string path)
{
  CCacheData ring;
  ring.setCacheFile("ring", 0, 0);
  CCacheDataEX file;
  file.SetFileName(path.data());
  const bool refused = ring.openCacheFile(card) < 0 && ring.initCacheFile() < 0 &&
                       ring.CheckCacheFileExist() == 0 && file.saveCacheData(1, 0, nullptr) == -1;
  return refused ? 0 : 1;
}

} // namespace

using SmallCard = CardTest;

TEST_F(SmallCard, KeepsWhatFitsAndRefusesTheRest)
{
  const std::string output = run_in_child(
      [&]
      {
        const auto mount_card = [&](unsigned long flags)
        {
          return mount("card", card.c_str(), "tmpfs", flags, "size=64k") == 0;
        };
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            !mount_card(0))
        {
          return 255;
        }
        int faults = fill_ring(card.c_str());
        unlink((card + "/ring").c_str());
        unlink((card + "/another").c_str());
        faults |= fill_file(path);
        return !mount_card(MS_REMOUNT | MS_RDONLY) ? 254 : faults | open_read_only(card.c_str(), path);
      });
  if (output == "255")
  {
    GTEST_SKIP() << "no right to make a mount namespace with a small file system";
  }
  EXPECT_EQ(output.substr(output.rfind('\n') + 1), "0");
}
