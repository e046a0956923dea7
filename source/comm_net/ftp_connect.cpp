// Opening and ending the control connection, and connecting within a time.

#include <devcomm/ftp_client.h>
#include <devcomm/socket.h>

#include "comm_net/deadline.h"
#include "comm_net/ftp_text.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace
{

constexpr int kControlLine = 594; // device logs are searched by it
constexpr int kGreetingSeconds = 15;

bool set_option(int fd, int level, int option, int value)
{
  return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

} // namespace

/// A TCP socket, or -1. Never 0, which stands for none in the session record.
int CFtpClient::OpenStream()
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd != 0)
  {
    return fd;
  }
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 1);
  close(fd);
  return moved;
}

int CFtpClient::FtpSetSockBlocking(int fd, int nonblocking)
{
  return set_block_ctl(fd, nonblocking != 0 ? 1 : 0);
}

int CFtpClient::FtpConnectNonb(int fd, sockaddr* addr, unsigned int len, int timeoutSec)
{
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
  {
    return -1;
  }
  if (connect(fd, addr, len) != 0)
  {
    if (errno != EINPROGRESS)
    {
      return -1;
    }
    const Deadline deadline(timeoutSec == 0 ? INT_MAX : timeoutSec);
    const int ready = wait_through_signals(fd, POLLIN | POLLOUT, deadline);
    if (ready < 1)
    {
      errno = ready == 0 ? ETIMEDOUT : errno;
      return -1;
    }
  }
  const int result = check_sock_err(fd);
  const int error = errno;
  fcntl(fd, F_SETFL, flags);
  errno = error;
  return result;
}

int CFtpClient::FtpSetSockBufSize(int fd, int recvBuf, int sendBuf, int keepalive)
{
  if (keepalive != 0)
  {
    if (!set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1))
    {
      m_log(kFtpProgress, "#### [SERVER ] Setsockopt SO_KEEPALIVE error !####");
    }
    if (!set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1))
    {
      m_log(kFtpProgress, "#### [SERVER ] Setsockopt TCP_NODELAY error !####");
    }
  }
  if (!set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1))
  {
    m_log(kFtpProgress, "#### [SERVER ] Setsockopt SO_REUSEADDR error !####");
  }
  if (!set_option(fd, SOL_SOCKET, SO_SNDBUF, sendBuf))
  {
    m_log(kFtpProgress, "#### [SERVER ]Setsockopt send buf error !####\n");
    return -1;
  }
  if (!set_option(fd, SOL_SOCKET, SO_RCVBUF, recvBuf))
  {
    m_log(kFtpProgress, "#### [SERVER ] Setsockopt recv buf error !####");
    return -1;
  }
  return 0;
}

int CFtpClient::FtpConnect()
{
  if (m_ftp_sdk_data.status >= kFtpConnected)
  {
    m_log(kFtpProgress, "already connected ftp server, needn't to connect again");
    return 0;
  }
  FtpDisconnect();
  if (m_ftp_sdk_data.server_addr[0] == '\0')
  {
    m_log(kFtpError, "need to init struct ftpconnection first");
    return -1;
  }
  sockaddr_in server{};
  if (net_make_addr(m_ftp_sdk_data.server_addr, m_ftp_sdk_data.server_port, &server) != 0)
  {
    m_log(kFtpError, "can't resolve %s\n", m_ftp_sdk_data.server_addr);
    return -1;
  }
  const int fd = OpenStream();
  if (fd < 1)
  {
    m_log(kFtpError, "create socket error!");
    return -1;
  }
  if (fd == m_ftp_sdk_data.data_fd)
  {
    // The kernel gives the number out again, so the data socket that had it is long closed.
    m_ftp_sdk_data.data_fd = 0;
    m_endedFd = 0;
  }
  m_ftp_sdk_data.control_fd = fd;
  inet_ntop(AF_INET, &server.sin_addr, m_ftp_sdk_data.server_ip, sizeof m_ftp_sdk_data.server_ip);
  return ConnectControl(server) == 0 ? ReadGreeting() : -1;
}

int CFtpClient::ConnectControl(sockaddr_in& server)
{
  const int fd = m_ftp_sdk_data.control_fd;
  if (FtpConnectNonb(fd, reinterpret_cast<sockaddr*>(&server), sizeof server, kFtpConnectSeconds) != 0)
  {
    m_log(kFtpError, "controlfd:%d controladdr.sin_addr:%d\n", fd, static_cast<int>(server.sin_addr.s_addr));
    m_log(kFtpError, "%s:%d Connection refused to %s", "FtpConnect", kControlLine,
          m_ftp_sdk_data.server_addr);
    return -1;
  }
  sockaddr_in local{};
  socklen_t length = sizeof local;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0)
  {
    m_log(kFtpError, "getsockname error");
    return -1;
  }
  if (FtpSetSockBlocking(fd, 1) != 0)
  {
    m_log(kFtpError, "set noblocking err");
    return -1;
  }
  m_ftp_sdk_data.status = kFtpConnected;
  return 0;
}

int CFtpClient::ReadGreeting()
{
  char line[kFtpLineSize];
  int code = FtpGetRc(line, sizeof line);
  while (code == 120)
  {
    m_log(kFtpProgress, "Service not yet ready.. waiting for 15 seconds");
    // A server that closes meanwhile ends the pause: what it had to say can be read.
    wait_through_signals(m_ftp_sdk_data.control_fd, POLLRDHUP, Deadline(kGreetingSeconds));
    code = FtpGetRc(line, sizeof line);
  }
  if (code != 220)
  {
    m_log(kFtpError, "%s", FtpErrorMessage(code));
    return -1;
  }
  m_log(kFtpProgress, "connect ftp server ...OK!");
  return 0;
}

int CFtpClient::FtpDisconnect()
{
  if (m_ftp_sdk_data.status >= kFtpLoggedIn)
  {
    char line[kFtpLineSize];
    if (!SendCommand(line, "QUIT\r\n"))
    {
      CloseControl();
      m_log(kFtpError, "send cmd(QUIT) error!");
      return -1;
    }
    if (FtpGetRc(line, sizeof line) == 500)
    {
      m_log(kFtpProgress, "Braindead server doesn't understand QUIT.. closing connection");
    }
  }
  if (m_ftp_sdk_data.status != kFtpIdle)
  {
    CloseControl();
  }
  m_ftp_sdk_data.control_fd = 0;
  m_ftp_sdk_data.status = kFtpBroken;
  return 0;
}
