#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// Runs commands of the shell without their output. @return whether the last one succeeded
inline bool run_shell(const std::string& commands)
{
  return system(("{ " + commands + "; } >/dev/null 2>&1").c_str()) == 0;
}

/// Enters mounts, and perhaps more, of its own; without the right to, as the root of a user namespace.
inline bool enter_namespaces(int more = 0)
{
  const std::string uid = std::to_string(geteuid());
  const std::string gid = std::to_string(getegid());
  if (unshare(CLONE_NEWNS | more) != 0)
  {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | more) != 0)
      return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + uid + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + gid + " 1";
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Runs a scenario in a child with a network, mounts and /sys of its own, so that nothing is left behind
/// however it ends. Failed expectations in it fail the test.
/// @param setup  commands that make the network's interfaces, IPv4 only; the test is skipped when they fail
inline void in_network_namespace(const std::string& setup, void (*scenario)())
{
  constexpr int kNoRight = 77;
  constexpr int kNoTool = 78;
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0)
  {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(60);
    if (!enter_namespaces(CLONE_NEWNET) || mount("none", "/sys", "sysfs", 0, nullptr) != 0)
      _exit(kNoRight);
    run_shell("echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6");
    if (!run_shell(setup))
      _exit(kNoTool);
    scenario();
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoRight)
    GTEST_SKIP() << "no right to make network and mount namespaces";
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoTool)
    GTEST_SKIP() << "no ip tool, or a kernel that lacks an interface's type";
  EXPECT_EQ(status, 0) << "failed in the namespace";
}
