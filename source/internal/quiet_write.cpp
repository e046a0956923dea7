#include "internal/quiet_write.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>

namespace
{

/// SIGPIPE goes to the thread that writes, so it is held back from this one and taken out again, unless one
/// was pending before, which is somebody else's.
ssize_t write_holding_sigpipe(int fd, const void* data, size_t len)
{
  sigset_t pipeSignal;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  sigemptyset(&pending);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);

  const ssize_t written = write(fd, data, len);
  const int error = errno;
  if (written < 0 && error == EPIPE && sigismember(&pending, SIGPIPE) == 0)
  {
    const timespec atOnce{};
    while (sigtimedwait(&pipeSignal, nullptr, &atOnce) < 0 && errno == EINTR)
    {
    }
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return written;
}

} // namespace

ssize_t quiet_write(int fd, const void* data, size_t len)
{
  const ssize_t sent = send(fd, data, len, MSG_NOSIGNAL);
  return sent < 0 && errno == ENOTSOCK ? write_holding_sigpipe(fd, data, len) : sent;
}

ssize_t quiet_write_ready(int fd, const void* data, size_t len)
{
  const ssize_t sent = send(fd, data, len, MSG_NOSIGNAL | MSG_DONTWAIT);
  return sent < 0 && errno == ENOTSOCK ? write_holding_sigpipe(fd, data, std::min<size_t>(len, PIPE_BUF))
                                       : sent;
}
