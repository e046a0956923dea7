#include <devcomm/time_process.h>

#include "comm_time/child.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>

TEST(Process, FindsAProcessByName)
{
  const std::string unique = "n" + std::to_string(getpid()) + "x";
  const auto search = [](int (*find)(char*), std::string name)
  {
    const int pid = find(&name[0]);
    return pid == getpid() ? "me " : std::to_string(pid) + " ";
  };
  const std::string found = run_in_child(
      [&]
      {
        std::string results = search(get_process_status, unique) + search(get_process_status_ex, unique);
        prctl(PR_SET_NAME, unique.c_str());
        results +=
            search(get_process_status, unique.substr(1)) + search(get_process_status, "(" + unique + ")");
        results += search(get_process_status_ex, unique + "-monitor");
        results += search(get_process_status_ex, unique.substr(0, unique.size() - 1));
        prctl(PR_SET_NAME,
              (unique + "ab c").c_str()); // counts up to the space, in one search less a character
        results += search(get_process_status, unique + "ab") + search(get_process_status, unique + "ab ");
        results += search(get_process_status_ex, unique + "a");
        return fputs(results.c_str(), stdout) < 0;
      });
  EXPECT_EQ(found, "-1 -1 me me me -1 me -1 me 0");
  EXPECT_EQ(get_process_status(nullptr) + get_process_status_ex(nullptr), -2);
}

TEST(Process, SplitsItsOwnPathAndRefusesShortBuffers)
{
  char path[PATH_MAX] = {};
  ASSERT_GT(readlink("/proc/self/exe", path, sizeof path - 1), 0);
  const std::string whole = path;
  const int size = static_cast<int>(whole.size());
  std::string dir(whole.size() + 2, '#');
  std::string name = dir;
  EXPECT_EQ(get_cur_process_info(&dir[0], &name[0], size), -1);
  EXPECT_EQ(get_cur_process_info(&dir[0], &name[0], size + 1), static_cast<int>(whole.rfind('/')) + 1);
  EXPECT_EQ(std::string(dir.c_str()) + name.c_str(), whole);
  EXPECT_EQ(dir.back(), '#');
  EXPECT_EQ(get_cur_process_info(nullptr, path, 10) + get_cur_process_info(path, nullptr, 10), -2);
}

TEST(Process, ClosesDescriptorsUpToTheSoftLimit)
{
  const auto close_below = [](rlim_t soft)
  {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = soft;
    setrlimit(RLIMIT_NOFILE, &limit);
    return _close_parent_all_fd();
  };
  const auto is_open = [](int fd)
  {
    return fcntl(fd, F_GETFD) >= 0;
  };
  const std::string closed = run_in_child(
      [&]
      {
        dup2(0, 63);
        dup2(0, 64);
        const bool kept = close_below(0) == 0 && is_open(63);
        return kept && close_below(64) == 0 && !is_open(0) && !is_open(63) && is_open(64);
      });
  EXPECT_EQ(closed, "1");
}

TEST(Process, ReadsWholeFilesOfAnySize)
{
  const ScratchFolder folder;
  std::string path = folder.path + "/file";
  EXPECT_EQ(proc_sys_file_to_buf(path.data()), nullptr);
  for (const size_t size : {0U, 4095U, 4096U, 100001U})
  {
    const std::string content(size, 'a'); // with its terminating zero
    std::ofstream(path) << content;
    char* buffer = proc_sys_file_to_buf(path.data());
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(memcmp(buffer, content.c_str(), size + 1), 0) << size;
    free(buffer);
  }
}
