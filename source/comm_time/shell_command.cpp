#include <devcomm/time_process.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr size_t kCommandSize = 512;
constexpr int kLongestLimitSeconds = 3600;
constexpr useconds_t kPollMicroseconds = 1000;
constexpr int kReapPolls = 1000;

void set_action(int signal_number, void (*handler)(int), struct sigaction* old)
{
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal_number, &action, old);
}

// The child shares the caller's memory until it runs the shell: it only makes system calls and never returns.
pid_t start_shell(const char* command)
{
  const pid_t pid = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  if (pid == 0)
  {
    signal(SIGQUIT, SIG_DFL); // NOLINT(clang-analyzer-unix.Vfork): it touches no memory of the caller
    signal(SIGCHLD, SIG_DFL); // NOLINT(clang-analyzer-unix.Vfork)
    execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
    _exit(127);
  }
  return pid;
}

// The child's pid when it has ended, 0 while it runs, negative when it cannot be waited for.
pid_t poll_child(pid_t pid)
{
  const pid_t ended = waitpid(pid, nullptr, WNOHANG);
  return ended < 0 && errno == EINTR ? 0 : ended;
}

// A killed shell goes within milliseconds, unless a device driver holds it: then it is left behind, because the
// caller's time limit comes first.
void kill_and_reap(pid_t pid)
{
  kill(pid, SIGKILL);
  for (int polls = 0; polls < kReapPolls && poll_child(pid) == 0; ++polls)
  {
    usleep(kPollMicroseconds);
  }
}

int wait_or_kill(pid_t pid, int seconds)
{
  const int limit = std::min(seconds, kLongestLimitSeconds);
  const time_t start = time(nullptr);
  for (;;)
  {
    const pid_t ended = poll_child(pid);
    if (ended != 0)
    {
      return ended == pid ? 0 : -3;
    }
    const time_t now = time(nullptr);
    if ((now > start ? now - start : start - now) >= limit) // a clock set back counts as well
    {
      kill_and_reap(pid);
      return -4;
    }
    usleep(kPollMicroseconds);
  }
}

} // namespace

int systemdump(const char* cmd, int seconds)
{
  if (cmd == nullptr)
  {
    return -1;
  }
  char command[kCommandSize];
  snprintf(command, sizeof command, "%s", cmd);

  struct sigaction oldQuit = {};
  struct sigaction oldChild = {};
  set_action(SIGQUIT, SIG_IGN, &oldQuit);
  set_action(SIGCHLD, SIG_DFL, &oldChild);
  const pid_t pid = start_shell(command);
  int result = -2;
  if (pid < 0)
  {
    // Only here: after a run SIGQUIT stays ignored, and callers rely on it.
    sigaction(SIGQUIT, &oldQuit, nullptr);
  }
  else
  {
    result = wait_or_kill(pid, seconds);
  }
  sigaction(SIGCHLD, &oldChild, nullptr);
  return result;
}

int remount(const char* path)
{
  if (path == nullptr || access(path, F_OK) != 0)
  {
    return -1;
  }
  char command[kCommandSize];
  const int length = snprintf(command, sizeof command, "mount -o rw,remount %s", path);
  if (length > 0 && static_cast<size_t>(length) < sizeof command) // a cut path would name another mount point
  {
    systemdump(command, 5);
  }
  return 0;
}
