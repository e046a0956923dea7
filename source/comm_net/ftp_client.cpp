#include <devcomm/ftp_client.h>

#include "comm_net/ftp_text.h"

#include <unistd.h>

#include <cstring>

namespace
{

int log_nowhere(unsigned int /*level*/, const char* /*format*/, ...)
{
  return 0;
}

template <size_t N>
void copy_text(char (&to)[N], const char* from)
{
  const size_t length = from == nullptr ? 0 : strnlen(from, N - 1);
  memcpy(to, from == nullptr ? "" : from, length);
  memset(to + length, 0, N - length);
}

} // namespace

CFtpClient::CFtpClient() : m_log(log_nowhere), m_ftp_sdk_data(), m_endedFd(0) {}

int CFtpClient::Init(FtpLog_t log)
{
  if (log == nullptr)
  {
    return -1;
  }
  m_log = log;
  return 0;
}

int CFtpClient::FtpSetServerInfo(int transferMode, UserDefServerSet_t* server)
{
  if (server == nullptr)
  {
    return -1;
  }
  m_ftp_sdk_data = {};
  m_endedFd = 0;
  m_ftp_sdk_data.transfer_mode = transferMode;
  m_ftp_sdk_data.server_port = server->server_port;
  copy_text(m_ftp_sdk_data.server_addr, server->server_addr);
  copy_text(m_ftp_sdk_data.username, server->username);
  copy_text(m_ftp_sdk_data.password, server->password);
  copy_text(m_ftp_sdk_data.remotedir, server->remotedir);
  m_log(kFtpProgress, "ip addr:%s port:%d username:%s password:%s remotedir:%s\n", m_ftp_sdk_data.server_addr,
        m_ftp_sdk_data.server_port, m_ftp_sdk_data.username, m_ftp_sdk_data.password,
        m_ftp_sdk_data.remotedir);
  return 0;
}

int CFtpClient::FtpSetLocalInfo(const char* subdir, const char* fileName)
{
  copy_text(m_ftp_sdk_data.subdir, subdir);
  copy_text(m_ftp_sdk_data.file_name, fileName);
  m_ftp_sdk_data.has_sub_dir = m_ftp_sdk_data.subdir[0] != '\0' ? 1 : 0;
  m_ftp_sdk_data.aux_value = 0;
  return 0;
}

ftp_sdk_data_t* CFtpClient::FtpGetClientData()
{
  return &m_ftp_sdk_data;
}

int CFtpClient::FtpCheckReady()
{
  switch (m_ftp_sdk_data.status)
  {
  case kFtpIdle:
  case kFtpBroken:
  case kFtpConnected:
  case 4: // these two belong to the application, which holds the session back with them
  case 99:
    return 0;
  default:
    return 1;
  }
}

int CFtpClient::FtpStart()
{
  const int ready = FtpCheckReady();
  if (ready != 0)
  {
    m_log(kFtpError, "FTP STATUS ERROR rc = %d", ready);
    return -1;
  }
  if (FtpConnect() != 0 || FtpLogin() != 0)
  {
    return -1;
  }
  if (m_ftp_sdk_data.transfer_mode != 0)
  {
    FtpCwd(m_ftp_sdk_data.remotedir);
  }
  else
  {
    EnterUploadDirectory();
  }
  return 0;
}

/// The replies do not matter: most directories exist, and one that is missing shows when the file is refused.
void CFtpClient::EnterUploadDirectory()
{
  if (m_ftp_sdk_data.has_sub_dir == 1)
  {
    FtpMkd(0);
    FtpCwd(0);
    FtpMkd(1);
    FtpCwd(1);
    return;
  }
  if (m_ftp_sdk_data.remotedir[0] == '\0')
  {
    return;
  }
  char path[sizeof m_ftp_sdk_data.remotedir + 1] = "";
  size_t used = 0;
  const char* rest = m_ftp_sdk_data.remotedir;
  while (*(rest += strspn(rest, "/")) != '\0')
  {
    const size_t length = strcspn(rest, "/");
    path[used++] = '/';
    memcpy(path + used, rest, length);
    used += length;
    path[used] = '\0';
    rest += length;
    FtpMkd(path);
  }
  FtpCwd(m_ftp_sdk_data.remotedir);
}

// The data socket's number ----------------------------------------------------------------------------------

bool CFtpClient::Usable(int fd) const
{
  return fd >= 1 && (fd != m_endedFd || fd != m_ftp_sdk_data.data_fd);
}

int CFtpClient::FtpCloseSockFd(int fd)
{
  if (!Usable(fd))
  {
    return -1;
  }
  close(fd);
  if (fd == m_ftp_sdk_data.data_fd)
  {
    m_endedFd = fd;
  }
  return 0;
}

void CFtpClient::CloseData()
{
  FtpCloseSockFd(m_ftp_sdk_data.data_fd);
  m_ftp_sdk_data.data_fd = 0;
  m_endedFd = 0;
}

void CFtpClient::CloseControl()
{
  FtpCloseSockFd(m_ftp_sdk_data.control_fd);
  m_ftp_sdk_data.control_fd = 0;
}

int CFtpClient::FtpClose()
{
  char quit[] = "QUIT\r\n";
  FtpSendLine(quit);
  return FtpCloseFd();
}

int CFtpClient::FtpCloseFd()
{
  m_ftp_sdk_data.status = kFtpIdle;
  CloseData();
  CloseControl();
  return 0;
}
