#include <devcomm/signal_handler.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

int g_seen = 0;

void note(int sig)
{
  g_seen = sig;
}

// Each case runs in a process of its own; status 0 says that all held.
[[noreturn]] void carry_on()
{
  SignalRegister(nullptr);
  int ends[2] = {-1, -1};
  bool good = pipe(ends) == 0;
  close(ends[0]);
  good = good && write(ends[1], "x", 1) == -1 && errno == EPIPE;
  errno = ERANGE;
  raise(SIGUSR1);
  raise(SIGABRT);
  SignalHandler(SIGKILL);
  SignalHandler(SIGCHLD);
  _exit(good && errno == ERANGE ? 0 : 1);
}

[[noreturn]] void use_own_handler()
{
  SignalRegister(note);
  raise(SIGTERM);
  const pid_t child = fork();
  if (child == 0)
    _exit(0);
  const bool reaped_by_itself = waitpid(child, nullptr, 0) == -1 && errno == ECHILD;
  _exit(g_seen == SIGTERM && reaped_by_itself ? 0 : 1);
}

// Calls the installed handler directly: the exit it makes is not safe inside a signal, which the thread
// sanitizer reports, and which this scheme accepts.
[[noreturn]] void die_of(int sig)
{
  SignalRegister(nullptr);
  if (signal(sig, SIG_DFL) == SignalHandler)
    SignalHandler(sig);
  _exit(1);
}

} // namespace

TEST(SignalHandler, LogsAndCarriesOnOrEndsWithStatusZero)
{
  GTEST_FLAG_SET(death_test_style, "fast");
  const auto ok = testing::ExitedWithCode(0);
  EXPECT_EXIT(carry_on(), ok,
              "^\\[[0-9]+\\]Recv Signal Broken pipe\n\\[[0-9]+\\]Recv Signal User defined signal 1\n"
              "\\[[0-9]+\\]Recv Signal Aborted\n\\[[0-9]+\\]Recv Signal Killed\nSIGKILL\n$");
  EXPECT_EXIT(use_own_handler(), ok, "^$");
  EXPECT_EXIT(die_of(SIGINT), ok, "^\\[[0-9]+\\]Recv Signal Interrupt\n\\[[0-9]+\\]Recv SIGINT\n$");
  EXPECT_EXIT(die_of(SIGTERM), ok, "^\\[[0-9]+\\]Recv Signal Terminated\n\\[[0-9]+\\]Recv SIGINT\n$");
  EXPECT_EXIT(die_of(SIGSEGV), ok,
              "^\\[[0-9]+\\]Recv Signal Segmentation fault\n\\[[0-9]+\\]Recv Signal Segmentation fault\n$");
}
