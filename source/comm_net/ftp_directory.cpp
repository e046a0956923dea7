#include <devcomm/ftp_client.h>

#include "comm_net/ftp_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{

constexpr size_t kMostDirectory = 128;

constexpr FtpReplyText kPwdRefusals[] = {
    {500, "Server doesn't understand PWD"},
    {502, "Server doesn't understand PWD"},
    {501, "Server doesn't understand PWD parameters"},
    {421, "Service unavailable"},
};

constexpr FtpReplyText kMkdRefusals[] = {
    {501, "Server doesn't understand MKD parameters\n"},
    {421, "Service unavailable\n"},
    {530, "Not logged in\n"},
    {502, "Server doesn't understand MKD\n"},
};

constexpr FtpReplyText kCwdRefusals[] = {
    {501, "Server doesn't understand CWD parameters\n"},
    {500, "Server doesn't understand CWD\n"},
    {502, "Server doesn't understand CWD\n"},
    {530, "Not logged in\n"},
    {421, "Service unavailable\n"},
};

/// Copies what stands between the first two double quotes, nothing when there are not two.
void copy_quoted(char (&to)[kMostDirectory + 1], const char* line)
{
  const char* begin = strchr(line, '"');
  const char* end = begin == nullptr ? nullptr : strchr(begin + 1, '"');
  const size_t length = end == nullptr ? 0 : std::min(static_cast<size_t>(end - begin - 1), kMostDirectory);
  memcpy(to, length == 0 ? "" : begin + 1, length);
  to[length] = '\0';
}

} // namespace

int CFtpClient::FtpPwd()
{
  if (FtpCheckReady() == 0)
  {
    return -1;
  }
  char line[kFtpLineSize];
  if (!SendCommand(line, "PWD\r\n"))
  {
    m_log(kFtpError, "###### send cmd (PWD) failed");
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  if (code == 257)
  {
    char directory[kMostDirectory + 1];
    copy_quoted(directory, line);
    m_log(kFtpProgress, "response to PWD: %s\n", directory);
    return 0;
  }
  if (const char* text = ftp_text_of(kPwdRefusals, code))
  {
    m_log(kFtpError, text);
  }
  else
  {
    m_log(kFtpError,
          code == 550 ? "Directory information unavailable: %d\n" : "Unknown response to PWD: %d\n", code);
  }
  return -1;
}

int CFtpClient::FtpMkd(int which)
{
  const char* directory = which == 0 ? m_ftp_sdk_data.remotedir : m_ftp_sdk_data.subdir;
  if (FtpCheckReady() == 0 || (which == 0 && directory[0] == '\0'))
  {
    return -1;
  }
  char line[kFtpLineSize];
  return MakeDirectory(line, SendCommand(line, "MKD %s\r\n", directory));
}

int CFtpClient::FtpMkd(char* path)
{
  if (FtpCheckReady() == 0 || path == nullptr)
  {
    return -1;
  }
  char line[kFtpLineSize];
  snprintf(line, sizeof line, "MKD %s\r\n", path);
  m_log(kFtpProgress, "mkd cmd:%s\n", line);
  return MakeDirectory(line, SendCommand(line, "MKD %s\r\n", path));
}

int CFtpClient::MakeDirectory(char* line, bool sent)
{
  if (!sent)
  {
    m_log(kFtpError, "###### send cmd (MKD %s) failed\n", line);
    return -1;
  }
  const int code = FtpGetRc(line, kFtpLineSize);
  if (code == 257)
  {
    // Names these two whatever was made; logs are searched by it.
    m_log(kFtpProgress, "Created %s on %s\n", m_ftp_sdk_data.subdir, m_ftp_sdk_data.remotedir);
    return 0;
  }
  if (const char* text = ftp_text_of(kMkdRefusals, code))
  {
    m_log(kFtpProgress, text);
  }
  else if (code == 500)
  {
    m_log(kFtpProgress, "Server doesn't understand \"MKD %s\"\n", line);
  }
  else if (code != 550) // the directory exists
  {
    m_log(kFtpProgress, "Unknown response to MKD: %d\n", code);
  }
  return -1;
}

int CFtpClient::FtpCwd(int which)
{
  if (FtpCheckReady() == 0)
  {
    return -1;
  }
  const char* mainDir = m_ftp_sdk_data.remotedir;
  const char* subDir = m_ftp_sdk_data.subdir;
  char command[sizeof m_ftp_sdk_data.remotedir + sizeof m_ftp_sdk_data.subdir + sizeof "CWD //\r\n"];
  if (which != 0)
  {
    snprintf(command, sizeof command, "CWD /%s/%s\r\n", mainDir, subDir);
  }
  else
  {
    snprintf(command, sizeof command, "CWD /%s\r\n", mainDir);
  }
  if (m_ftp_sdk_data.has_sub_dir == 1 && strcmp(mainDir, subDir) == 0)
  {
    // Not entered, and no failure: callers that keep one directory in both fields rely on it.
    m_log(kFtpError, "(CWD %s) failed maindir:%s subdir:%s\n", command, mainDir, subDir);
    return 0;
  }
  char line[kFtpLineSize];
  return EnterDirectory(line, SendCommand(line, "%s", command), command);
}

int CFtpClient::FtpCwd(char* path)
{
  if (FtpCheckReady() == 0 || path == nullptr)
  {
    return -1;
  }
  char line[kFtpLineSize];
  return EnterDirectory(line, SendCommand(line, "CWD %s\r\n", path), nullptr);
}

/// @param command  logged on success; null: success is not logged
int CFtpClient::EnterDirectory(char* line, bool sent, const char* command)
{
  if (!sent)
  {
    m_log(kFtpError, "###### send cmd (CWD %s) failed", line);
    return -1;
  }
  const int code = FtpGetRc(line, kFtpLineSize);
  if (code == 250)
  {
    if (command != nullptr)
    {
      m_log(kFtpProgress, "(CWD %s) sucess\n", command);
    }
    return 0;
  }
  if (const char* text = ftp_text_of(kCwdRefusals, code))
  {
    m_log(kFtpError, text);
  }
  else if (code == 550)
  {
    m_log(kFtpError, "Directory \"%s\" does not exist\n", line);
  }
  else
  {
    m_log(kFtpError, "Unknown response to CWD: %d\n", code);
  }
  return -1;
}
