#include <devcomm/time_process.h>

#include "comm_time/child.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/resource.h>

namespace
{

void on_signal(int) {}

bool has_handler(int signal_number, void (*handler)(int))
{
  struct sigaction action = {};
  sigaction(signal_number, nullptr, &action);
  return action.sa_handler == handler;
}

} // namespace

TEST(ShellCommand, KillsAndReapsOnlyItsOwnChildAndRestoresOnlySigchld)
{
  const std::string result = run_in_child(
      []
      {
        const pid_t other = fork();
        if (other == 0)
          _exit(9);
        signal(SIGCHLD, on_signal);
        signal(SIGQUIT, on_signal);
        const unsigned long long start = msecdiff(0);
        printf("%d,%d,", systemdump("exec sleep 30", 1), systemdump("exec sleep 30", -1));
        printf("%d,%d,%d:", systemdump("exit 3", 20), systemdump(nullptr, 5), msecdiff(start) < 15000);
        fflush(stdout);
        systemdump("echo default; kill -QUIT $$; echo ignored", 20); // the command has the default actions
        printf("%d,%d,", has_handler(SIGCHLD, on_signal), has_handler(SIGQUIT, SIG_IGN));
        int status = 0;
        printf("%d,", waitpid(other, &status, 0) == other && WEXITSTATUS(status) == 9);
        return waitpid(-1, &status, 0) == -1 && errno == ECHILD;
      });
  EXPECT_EQ(result, "-4,-4,0,-1,1:default\n1,1,1,1");
}

TEST(ShellCommand, AFailedForkRestoresBothSignals)
{
  const std::string result = run_in_child(
      []
      {
        const rlimit none = {0, 0};
        if (setrlimit(RLIMIT_NPROC, &none) != 0 || (getuid() == 0 && setuid(65534) != 0))
          return 77;
        signal(SIGQUIT, on_signal);
        printf("%d,", systemdump("true", 5));
        return has_handler(SIGQUIT, on_signal) ? 1 : 0;
      });
  if (result == "77")
    GTEST_SKIP() << "no right to become a user whose processes are limited";
  EXPECT_EQ(result, "-2,1");
}

TEST(ShellCommand, CutsLongCommandsAndRemountsExistingPathsOnly)
{
  EXPECT_EQ(run_in_child([] { return systemdump(("echo " + std::string(600, 'x')).c_str(), 20); }),
            std::string(506, 'x') + "\n0");
  const ScratchFolder folder;
  const std::string mount = folder.path + "/mount"; // in place of the system's
  ASSERT_EQ(symlink("/bin/echo", mount.c_str()), 0);
  const std::string result = run_in_child(
      [&folder]
      {
        setenv("PATH", folder.path.c_str(), 1);
        return remount("/tmp") == 0 && remount(std::string(600, '/').c_str()) == 0 &&
               remount("/none/such") == -1;
      });
  EXPECT_EQ(result, "-o rw,remount /tmp\n1");
}
