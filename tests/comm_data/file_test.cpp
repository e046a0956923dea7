#include <devcomm/file.h>

#include "support/scratch_folder.h"

#include <cstring>
#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>
#include <vector>

namespace
{

struct File : testing::Test
{
  ScratchFolder m_folder;
  std::string m_path = m_folder.path + "/f";
  char* const path = m_path.data();
};

std::string whole(char* path)
{
  int len = -1;
  char* buffer = filetobufwithoutbuf(path, &len);
  const std::string text = buffer == nullptr ? "null" : std::string(buffer, static_cast<size_t>(len));
  EXPECT_EQ(buffer == nullptr ? len : buffer[len], 0);
  free(buffer);
  return text;
}

// What the four questions about size and existence answer.
std::vector<long long> questions(char* path)
{
  return {getfilesize(path), get_file_size(path), fileisexist(path), file_exist(path)};
}

} // namespace

TEST_F(File, WritesAppendsAndReadsBack)
{
  char text[] = "hello";
  char buf[16] = {};
  int len = -1;
  EXPECT_EQ(whole(path), "null");
  EXPECT_EQ(questions(path), (std::vector<long long>{-1, 0, -1, 0}));
  EXPECT_EQ(filetobufwithbuf(buf, 4, &len, path), -1);

  EXPECT_EQ(buffertofile(text, 0, path), 0);
  EXPECT_EQ(whole(path), "");
  EXPECT_EQ(buffertofile(text, 5, path), 0);
  EXPECT_EQ(bufferaddfile(text, 2, path), 0);
  EXPECT_EQ(bufferaddfile(text, -1, path), -1);
  EXPECT_EQ(buffertofile(text, -1, path), -1);
  EXPECT_EQ(whole(path), "hellohe");
  EXPECT_EQ(questions(path), (std::vector<long long>{7, 7, 0, 1}));
  EXPECT_TRUE(filetobufwithbuf(buf, 3, &len, path) == 0 && len == 3);
  EXPECT_STREQ(buf, "hel");
  EXPECT_TRUE(filetobufwithbuf(buf, 16, &len, path) == 0 && len == 7);
}

TEST_F(File, SurvivesFilesThatTellWrongSizes)
{
  char proc[] = "/proc/self/status";
  const std::string status = whole(proc);
  EXPECT_GT(status.size(), 200U) << "tells a size of 0";
  EXPECT_EQ(status.compare(0, 5, "Name:"), 0);
  char buf[6] = {};
  int len = 0;
  EXPECT_EQ(filetobufwithbuf(buf, 5, &len, proc), 0);
  EXPECT_STREQ(buf, "Name:");
  EXPECT_EQ(whole(m_folder.path.data()), "null") << "a folder";
  EXPECT_EQ(filetobufwithbuf(buf, 5, &len, m_folder.path.data()), -1);

  char full[] = "/dev/full";
  EXPECT_EQ(buffertofile(buf, 5, full), -1) << "shows only at closing";
  EXPECT_EQ(bufferaddfile(buf, 5, full), -1);

  const int fd = open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  const bool sparse = ftruncate(fd, 5LL << 30) == 0;
  close(fd);
  if (sparse)
  {
    EXPECT_EQ(questions(path), (std::vector<long long>{5LL << 30, 5LL << 30, 0, 1}));
    EXPECT_EQ(get_disk_size(path), 5ULL << 30);
    EXPECT_EQ(whole(path), "null");
    EXPECT_EQ(filetobufwithbuf(buf, 5, &len, path), 0);
  }
}

TEST_F(File, MakesDirectories)
{
  EXPECT_EQ(dir_is_exist(path), -1);
  EXPECT_EQ(make_dir(path), 0);
  EXPECT_EQ(make_dir(path), 0) << "is there";
  EXPECT_EQ(dir_is_exist(path), 0);
  EXPECT_EQ(make_not_exist_dir(path), 0);
  std::string deep = m_path + "/a/b";
  EXPECT_EQ(make_dir(deep.data()), -1);

  rmdir(path);
  char c = 'x';
  ASSERT_EQ(buffertofile(&c, 1, path), 0);
  EXPECT_EQ(make_dir(path), 0) << "exists, if only as a file";
  testing::internal::CaptureStderr();
  EXPECT_EQ(make_not_exist_dir(path), -1);
  EXPECT_EQ(make_not_exist_dir(deep.data()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "opendir: Not a directory\nmake_dir: Not a directory\n");
}

TEST_F(File, LooksUpMounts)
{
  unsigned long long total = 1;
  unsigned long long avail = 1;
  EXPECT_LT(get_mnt_size(path, &total, &avail), 0);
  EXPECT_EQ(total + avail, 0U);
  EXPECT_EQ(get_mnt_size(m_folder.path.data(), &total, &avail), 0);
  EXPECT_GT(total, 0U);
  EXPECT_LE(avail, total);
  const struct mntent* entry = get_mount_point("/proc");
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->mnt_type, "proc");
  EXPECT_EQ(get_mount_point("/proc/"), nullptr) << "equal to the letter";
}

TEST_F(File, AsksBlockDevicesForTheirSize)
{
  const int fd = open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_EQ(ftruncate(fd, 3 << 20), 0);
  close(fd);
  EXPECT_EQ(get_disk_size(path), 3U << 20) << "a plain file by its end";
  FILE* setup = popen(("losetup --show -f " + m_path + " 2>/dev/null").c_str(), "r");
  ASSERT_NE(setup, nullptr);
  char device[64] = {};
  const bool made = fgets(device, sizeof device, setup) != nullptr;
  pclose(setup);
  if (!made)
    GTEST_SKIP() << "no right to set up a loop device";
  device[strcspn(device, "\n")] = '\0';
  EXPECT_EQ(get_disk_size(device), 3U << 20);
  EXPECT_EQ(system((std::string("losetup -d ") + device).c_str()), 0);
}
