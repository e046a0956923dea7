// Both caches on a card that is full, and then read-only: a small file system in a namespace of the test's own.

#include "comm_storage/card.h"
#include "comm_time/child.h"
#include "support/net_namespace.h"

namespace
{

void fill_ring(const char* card)
{
  CCacheData ring;
  ring.setCacheFile("ring", 0, 0);
  EXPECT_EQ(ring.openCacheFile(card), 0);
  int saved = -1;
  for (; ring.CheckCacheFileExist() == 1; ++saved)
    save_in(ring, saved + 1, "record");
  EXPECT_GT(saved, 8);
  EXPECT_GT(ring.openCacheFile(card), 0);
  for (int i = 0; i < saved; ++i)
    EXPECT_EQ(read_from(ring), std::to_string(i) + ":record");
  EXPECT_EQ(read_from(ring), "none");
  ring.setCacheFile("another", 0, 0);
  EXPECT_TRUE(ring.openCacheFile(card) == -1 && ring.CheckCacheFileExist() == 0);
}

void fill_file(std::string path)
{
  CCacheDataEX file;
  file.SetFileName(path.data());
  int saved = 0;
  while (save_in(file, saved, "record") == 0)
    ++saved;
  EXPECT_GT(saved, 20);
  EXPECT_EQ(file.checkCacheData(), -1);
  for (int i = 0; i < saved - 1; ++i) // the last one stood in the stream's buffer
    EXPECT_EQ(read_from(file), std::to_string(i) + ":record");
  EXPECT_EQ(read_from(file), "none");
}

void open_read_only(const char* card, std::string path)
{
  CCacheData ring;
  ring.setCacheFile("ring", 0, 0);
  CCacheDataEX file;
  file.SetFileName(path.data());
  EXPECT_TRUE(ring.openCacheFile(card) < 0 && ring.initCacheFile() < 0 && ring.CheckCacheFileExist() == 0);
  EXPECT_EQ(file.saveCacheData(1, 0, nullptr), -1);
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
        if (!enter_namespaces() || !mount_card(0))
          return 255;
        fill_ring(card.c_str());
        unlink((card + "/ring").c_str());
        unlink((card + "/another").c_str());
        fill_file(path);
        EXPECT_TRUE(mount_card(MS_REMOUNT | MS_RDONLY));
        open_read_only(card.c_str(), path);
        return HasFailure() ? 1 : 0;
      });
  if (output == "255")
    GTEST_SKIP() << "no right to make a mount namespace with a small file system";
  EXPECT_EQ(output.substr(output.rfind('\n') + 1), "0") << output;
}
