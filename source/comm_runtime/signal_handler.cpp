#include <devcomm/signal_handler.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace
{

// One unbuffered write: no lock of stdio that the interrupted thread may hold.
void write_text(const char* text, int length)
{
  if (length > 0 && write(STDERR_FILENO, text, static_cast<size_t>(length)) < 0)
  {
    return; // nowhere to report it
  }
}

void write_signal(int sig)
{
  char line[128];
  const int length = snprintf(line, sizeof line, "[%d]Recv Signal %s\n", getpid(), strsignal(sig));
  write_text(line, std::min(length, static_cast<int>(sizeof line) - 1));
}

void write_interrupt()
{
  char line[48];
  write_text(line, snprintf(line, sizeof line, "[%d]Recv SIGINT\n", getpid()));
}

} // namespace

void SignalRegister(void (*handler)(int))
{
  if (handler == nullptr)
  {
    handler = SignalHandler;
  }
  signal(SIGCHLD, SIG_IGN);
  // SIGSTOP and SIGKILL are refused by the system; the list stays as it is.
  for (const int sig :
       {SIGPIPE, SIGTERM, SIGABRT, SIGINT, SIGQUIT, SIGSEGV, SIGSTOP, SIGUSR1, SIGUSR2, SIGKILL})
  {
    signal(sig, handler);
  }
}

void SignalHandler(int sig)
{
  if (sig == SIGCHLD)
  {
    return;
  }
  const int error = errno;
  write_signal(sig);
  switch (sig)
  {
  case SIGINT:
  case SIGTERM:
    write_interrupt();
    exit(0);
  case SIGKILL:
    write_text("SIGKILL\n", 8);
    break;
  case SIGSEGV:
    write_signal(sig);
    sleep(1);
    sync();
    exit(0);
  default:
    break;
  }
  errno = error;
}
