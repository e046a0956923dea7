#include <devcomm/unix_domain.h>

#include "comm_server_client/unix_domain_address.h"

#include <devcomm/time_process.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include <poll.h>
#include <unistd.h>

namespace
{

constexpr int kInterrupted = -1;
constexpr int kWaitFailed = -2;
constexpr int kTimedOut = -3;
constexpr int kWriteFailed = -4;

constexpr int64_t kUsPerSecond = 1000000;

int64_t steady_us()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * kUsPerSecond + now.tv_nsec / 1000;
}

/// The time a wait may take, in the two numbers that callers give.
struct Patience
{
  int sec;
  int usec;

  bool IsValid() const
  {
    return sec >= 0 && usec >= 0;
  }
  int64_t Us() const
  {
    return sec * kUsPerSecond + usec;
  }
};

// As poll: above 0 ready, 0 time is over, below 0 failed.
int wait_for(int sock, short event, int64_t us)
{
  us = std::max<int64_t>(us, 0);
  timespec time{};
  time.tv_sec = static_cast<time_t>(us / kUsPerSecond);
  time.tv_nsec = static_cast<long>(us % kUsPerSecond * 1000);
  pollfd fd{sock, event, 0};
  return ppoll(&fd, 1, &time, nullptr);
}

ssize_t write_now(int sock, const char* data, int len)
{
  if (len < 0)
  {
    errno = EINVAL;
    return -1;
  }
  return send(sock, data, static_cast<size_t>(len), MSG_NOSIGNAL | MSG_DONTWAIT);
}

// 0 or the code that is logged. Room that another sender takes first is waited for again, within the same time.
int deliver(int sock, const char* data, int len, const Patience& patience)
{
  if (!patience.IsValid())
  {
    return kWaitFailed;
  }
  const int64_t end = steady_us() + patience.Us();
  for (;;)
  {
    const int ready = wait_for(sock, POLLOUT, end - steady_us());
    if (ready < 0)
    {
      return errno == EINTR ? kInterrupted : kWaitFailed;
    }
    if (ready == 0)
    {
      return kTimedOut;
    }
    if (write_now(sock, data, len) >= 0)
    {
      return 0;
    }
    if (errno != EAGAIN)
    {
      return kWriteFailed;
    }
  }
}

bool receive_reply(int sock, const Patience& patience, char* reply, int* replyLen)
{
  if (wait_for(sock, POLLIN, patience.Us()) <= 0)
  {
    return false;
  }
  const ssize_t got = recv(sock, reply, static_cast<size_t>(std::max(*replyLen, 0)), MSG_DONTWAIT);
  if (got <= 0)
  {
    return false;
  }
  *replyLen = static_cast<int>(got);
  return true;
}

/// A socket bound to the process's reply address, whose file goes with it.
class Sender
{
public:
  Sender()
  {
    char path[sizeof m_own.sun_path];
    snprintf(path, sizeof path, "/tmp/unixdomain_%d", static_cast<int>(getpid()));
    m_own = unix_domain_address(path);
  }
  ~Sender()
  {
    if (m_sock >= 0)
    {
      close(m_sock);
    }
    unlink(m_own.sun_path);
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  bool Connect(const char* name)
  {
    m_sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_sock < 0)
    {
      return false;
    }
    unlink(m_own.sun_path);
    const sockaddr_un peer = unix_domain_address(name);
    return bind(m_sock, reinterpret_cast<const sockaddr*>(&m_own), sizeof m_own) == 0 &&
           connect(m_sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
  }
  int Sock() const
  {
    return m_sock;
  }

private:
  sockaddr_un m_own;
  int m_sock = -1;
};

} // namespace

int SendUnixDomainDataToAddr(int sock, sockaddr_un* addr, unsigned* addrLen, char* data, int len)
{
  if (addr == nullptr || addrLen == nullptr || len < 0)
  {
    errno = EINVAL;
    return -1;
  }
  const ssize_t sent =
      sendto(sock, data, static_cast<size_t>(len), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(addr), *addrLen);
  return sent == len ? 0 : -1;
}

int SendUnixDomainDataToName(char* data, int len, const char* name, int timeoutSec, int timeoutUsec,
                             int wantReply, char* reply, int* replyLen)
{
  Sender sender;
  if (name == nullptr || (wantReply != 0 && (reply == nullptr || replyLen == nullptr)) ||
      !sender.Connect(name))
  {
    return -1;
  }
  const Patience patience{timeoutSec, timeoutUsec};
  const int code = deliver(sender.Sock(), data, len, patience);
  if (code != 0)
  {
    UnixDomainDbgLog("send to %s fail(%d)\n", name, code);
    return -1;
  }
  if (wantReply != 0 && !receive_reply(sender.Sock(), patience, reply, replyLen))
  {
    UnixDomainDbgLog("wait recv %s fail\n", name);
    return -1;
  }
  return 0;
}

int UnixDomainDbgLog(const char* format, ...)
{
  char dir[PATH_MAX] = {};
  char process[PATH_MAX] = {};
  get_cur_process_info(dir, process, sizeof dir);
  const auto now = static_cast<long>(time(nullptr));
  tm local{};
  comm_localtime_r(&now, &local);
  char line[1024];
  const int head =
      snprintf(line, sizeof line, "[%04d%02d%02d-%02d%02d%02d][%s] ", local.tm_year + 1900, local.tm_mon + 1,
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, process);
  const auto used = static_cast<size_t>(std::clamp<int>(head, 0, sizeof line - 1));
  if (format != nullptr)
  {
    va_list args;
    va_start(args, format);
    vsnprintf(line + used, sizeof line - used, format, args);
    va_end(args);
  }
  puts(line);
  return 0;
}
