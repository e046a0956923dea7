#include <devcomm/lock.h>

#include "support/scratch_folder.h"
#include "support/signal_storm.h"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace
{

struct FileLock : testing::Test
{
  bool is_free() const
  {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool taken = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return taken;
  }

  ScratchFolder folder;
  std::string path = folder.path + "/lock";
};

} // namespace

TEST(Lock, ExcludesUntilTheScopeEnds)
{
  CLock lock;
  {
    CAutoLock guard(&lock);
    int seen = 0;
    std::thread([&] { seen = lock.Trylock(); }).join();
    EXPECT_EQ(seen, EBUSY);
  }
  EXPECT_EQ(lock.Trylock(), 0);
  EXPECT_EQ(lock.Unlock(), 0);
  CAutoLock nothing(nullptr);
  CFileAutoLock nothing_either(nullptr);
}

TEST_F(FileLock, ExcludesOtherObjectsAndProcessesUntilTheScopeEnds)
{
  const mode_t mask = umask(0);
  CFileLock lock(path.data());
  umask(mask);
  struct stat info = {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0666u);
  {
    CFileAutoLock guard(&lock);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_TRUE(is_free());
    EXPECT_EQ(lock.Lock(), 0);
  }
  EXPECT_TRUE(is_free());
  {
    CFileLock other(path.data());
    other.Lock();
    EXPECT_FALSE(is_free());
  }
  EXPECT_TRUE(is_free()) << "the end of the object gives the lock up";

  std::string missing = path + "/no/such";
  CFileLock bad(missing.data());
  CFileLock null(nullptr);
  EXPECT_EQ(bad.Lock(), -1);
  EXPECT_EQ(bad.Unlock(), -1);
  EXPECT_EQ(null.Lock(), -1);
}

TEST_F(FileLock, ASignalDoesNotEndTheWait)
{
  CFileLock holder(path.data());
  CFileLock waiter(path.data());
  holder.Lock();
  const SignalStorm storm;
  std::atomic<bool> released{false};
  std::thread releaser(
      [&]
      {
        usleep(20000);
        released = true;
        holder.Unlock();
      });
  EXPECT_TRUE(waiter.Lock() == 0 && released);
  releaser.join();
}
