// The data connection: opening it, and moving bytes over it within a time.

#include <devcomm/ftp_client.h>

#include "comm_net/deadline.h"
#include "comm_net/ftp_text.h"
#include "internal/quiet_write.h"

#include <arpa/inet.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace
{

constexpr int kDataLine = 1240; // device logs are searched by it
constexpr int kReceiveBuffer = 262144;
constexpr int kSendBuffer = 65536;

constexpr FtpReplyText kPasvRefusals[] = {
    {500, "Server doesn't understand PASV\n"},
    {502, "Server doesn't understand PASV\n"},
    {501, "Server doesn't understand PASV parameters\n"},
    {530, "Not logged in\n"},
};

/// The numbers h1,h2,h3,h4,p1,p2. @return false when one is missing
bool parse_numbers(const char* text, int (&numbers)[6])
{
  int* n = numbers;
  return sscanf(text, "%i,%i,%i,%i,%i,%i", n, n + 1, n + 2, n + 3, n + 4, n + 5) == 6;
}

int port_of(const int (&numbers)[6])
{
  return static_cast<int>(static_cast<unsigned int>(numbers[4]) * 256 +
                          static_cast<unsigned int>(numbers[5]));
}

/// Whether the reply holds six numbers in brackets; only the low 16 bits of the port count.
bool announced_port(char* line, uint16_t* port)
{
  char* begin = strchr(line, '(');
  char* end = begin == nullptr ? nullptr : strchr(begin, ')');
  if (end == nullptr)
  {
    return false;
  }
  *end = '\0';
  int numbers[6];
  const bool whole = parse_numbers(begin + 1, numbers);
  *port = whole ? static_cast<uint16_t>(port_of(numbers)) : 0;
  return whole;
}

} // namespace

int CFtpClient::FtpParsePasv(char* numbers, char* ipOut)
{
  int n[6];
  if (numbers == nullptr || !parse_numbers(numbers, n))
  {
    return -1;
  }
  if (ipOut != nullptr)
  {
    snprintf(ipOut, kPasvAddressSize, "%d.%d.%d.%d", n[0], n[1], n[2], n[3]);
  }
  return port_of(n);
}

int CFtpClient::FtpOpenDataPasv()
{
  FtpCloseSockFd(m_ftp_sdk_data.data_fd);
  char line[kFtpLineSize];
  if (FtpCheckReady() == 0 || !SendCommand(line, "PASV\r\n"))
  {
    return -1;
  }
  int code = FtpGetRc(line, sizeof line);
  if (code == 226) // of an earlier listing
  {
    code = FtpGetRc(line, sizeof line);
    if (code != 227)
    {
      m_log(kFtpError, "Unknown response to PASV: %d\n", code);
      return 0;
    }
  }
  if (code != 227)
  {
    return RefusedPasv(code);
  }
  uint16_t port = 0;
  if (!announced_port(line, &port))
  {
    m_log(kFtpError, "error address.\n");
    return -1;
  }
  return ConnectData(port);
}

/// Callers test FtpOpenDataPasv for -1: most refusals are 0, and show when the transfer command is refused.
int CFtpClient::RefusedPasv(int code)
{
  if (code == 421 || code == 425)
  {
    m_log(kFtpError,
          code == 421 ? "Service unavailable\n" : "can not open data oprt/host close data port %s\n",
          m_ftp_sdk_data.server_addr);
    FtpDisconnect();
    return -2;
  }
  if (const char* text = ftp_text_of(kPasvRefusals, code))
  {
    m_log(kFtpError, text);
  }
  else
  {
    m_log(kFtpError, "Unknown response to PASV: %d\n", code);
  }
  return 0;
}

int CFtpClient::ConnectData(uint16_t port)
{
  const int fd = OpenStream();
  if (fd < 1)
  {
    m_log(kFtpError, "error connect\n");
    return -1;
  }
  m_ftp_sdk_data.data_fd = fd;
  m_endedFd = 0;
  FtpSetSockBufSize(fd, kReceiveBuffer, kSendBuffer, 0);
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(port);
  if (inet_aton(m_ftp_sdk_data.server_ip, &server.sin_addr) == 0)
  {
    m_log(kFtpError, "error address.\n");
    return -1;
  }
  if (FtpConnectNonb(fd, reinterpret_cast<sockaddr*>(&server), sizeof server, kFtpConnectSeconds) != 0)
  {
    m_log(kFtpError, "%s:%d Connection refused to %s and port = %d\n", "FtpOpenDataPasv", kDataLine,
          m_ftp_sdk_data.server_ip, port);
    return -1;
  }
  m_ftp_sdk_data.status = kFtpDataOpen;
  return 0;
}

/// Waits for a descriptor, and logs the text for every signal that comes meanwhile.
///
/// @return above 0 ready, 0 time is over, -1 failed
int CFtpClient::WaitFor(int fd, short events, int timeoutSec, const char* interrupted)
{
  if (!Usable(fd) || timeoutSec < 0)
  {
    return -1;
  }
  const Deadline deadline(timeoutSec);
  int ready = wait_until(fd, events, deadline);
  while (ready < 0 && errno == EINTR)
  {
    m_log(kFtpTrouble, interrupted);
    ready = wait_until(fd, events, deadline);
  }
  return ready;
}

int CFtpClient::FtpWriteDate(int fd, const char* buf, unsigned int len, int timeoutSec)
{
  size_t written = 0;
  bool failed = len > INT_MAX || (buf == nullptr && len > 0);
  while (!failed && written < len)
  {
    failed = WaitFor(fd, POLLOUT, timeoutSec, "select is interupted") < 1;
    const ssize_t part = failed ? 0 : quiet_write_ready(fd, buf + written, len - written);
    if (part >= 0)
    {
      written += static_cast<size_t>(part);
    }
    else if (errno == EINTR || errno == EAGAIN)
    {
      m_log(kFtpTrouble, "write is interupted");
    }
    else
    {
      failed = true;
    }
  }
  if (failed)
  {
    m_log(kFtpTrouble, "write error or timeout");
    return -1;
  }
  return static_cast<int>(written);
}

int CFtpClient::FtpReadDate(int fd, void* buf, unsigned int len, int timeoutSec)
{
  for (;;)
  {
    if (WaitFor(fd, POLLIN, timeoutSec, "select interupted!") < 1)
    {
      m_log(kFtpTrouble, "read error or timeout err");
      return -1;
    }
    const ssize_t got = read(fd, buf, std::min<size_t>(len, INT_MAX));
    if (got >= 0)
    {
      return static_cast<int>(got);
    }
    if (errno != EINTR && errno != EAGAIN)
    {
      return -1;
    }
    m_log(kFtpTrouble, "read data error , maybe interupted or no data");
  }
}
