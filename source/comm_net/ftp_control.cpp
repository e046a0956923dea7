// Lines of the control connection: commands out, replies in.

#include <devcomm/ftp_client.h>

#include "comm_net/ftp_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{

constexpr int kCommandSeconds = 5;
constexpr int kReplySeconds = 60;
constexpr size_t kMostReplyLine = 200;

constexpr FtpReplyText kReplyTexts[] = {
    {110, "Restart marker reply"},
    {120, "Service ready in nnn minutes."},
    {125, "Data connection already open; transfer starting."},
    {150, "File status okay; about to open data connection."},
    {200, "Command okay."},
    {202, "Command not implemented, superfluous at this site."},
    {211, "System status, or system help reply."},
    {212, "Directory status."},
    {213, "File status."},
    {214, "Help message."},
    {215, "NAME system type."},
    {220, "Service ready for new user."},
    {221, "Service closing control connection."},
    {225, "Data connection open; no transfer in progress."},
    {226, "Closing data connection successfully."},
    {227, "Entering Passive Mode (h1,h2,h3,h4,p1,p2)."},
    {230, "User logged in, proceed."},
    {250, "Requested file action okay, completed."},
    {257, "PATHNAME created."},
    {331, "User name okay, need password."},
    {332, "Need account for login."},
    {350, "Requested file action pending further information."},
    {421, "Service not available, closing control connection."},
    {425, "Can't open data connection."},
    {426, "Connection closed; transfer aborted."},
    {450, "Requested file action not taken - File unavailable."},
    {451, "Requested action aborted: local error in processing."},
    {452, "Requested action not taken - Insufficient storage space in system."},
    {500, "Syntax error, command unrecognized."},
    {501, "Syntax error in parameters or arguments."},
    {502, "Command not implemented."},
    {503, "Bad sequence of commands."},
    {504, "Command not implemented for that parameter."},
    {530, "Not logged in."},
    {532, "Need account for storing files."},
    {550, "Requested action not taken - File unavailable."},
    {551, "Requested action aborted: page type unknown."},
    {552, "Requested file action aborted - Exceeded storage allocation"},
    {553, "Requested action not taken - File name not allowed."},
};

bool is_digit(char c)
{
  return c >= '0' && c <= '9';
}

/// Whether the line ends a reply: "NNN text".
bool ends_reply(const char* line)
{
  return is_digit(line[0]) && is_digit(line[1]) && is_digit(line[2]) && line[3] == ' ';
}

} // namespace

const char* CFtpClient::FtpErrorMessage(int code)
{
  const char* text = ftp_text_of(kReplyTexts, code);
  return text != nullptr ? text : "Unknown error";
}

int CFtpClient::FtpSendLine(char* line)
{
  if (line == nullptr)
  {
    return -1;
  }
  if (m_ftp_sdk_data.status == kFtpIdle || m_ftp_sdk_data.status == kFtpBroken)
  {
    m_log(kFtpError, "this->m_ftp_sdk_data.status:%d cmd:%s\n", m_ftp_sdk_data.status, line);
    return 0;
  }
  const int written =
      FtpWriteDate(m_ftp_sdk_data.control_fd, line, static_cast<unsigned int>(strlen(line)), kCommandSeconds);
  if (written < 0)
  {
    m_ftp_sdk_data.status = kFtpBroken;
    m_log(kFtpError, "net_fd_write failed");
  }
  return written;
}

/// Builds a command in line (kFtpLineSize bytes), also when it is then refused, and sends it.
///
/// A cut command would name another file, and a line end inside would be a second command.
bool CFtpClient::SendCommand(char* line, const char* format, ...)
{
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(line, kFtpLineSize, format, arguments);
  va_end(arguments);
  const bool whole = length > 0 && static_cast<size_t>(length) < kFtpLineSize;
  return whole && strcspn(line, "\r\n") == static_cast<size_t>(length) - 2 && FtpSendLine(line) >= 1;
}

char* CFtpClient::FtpReadLine(char* buf, int /*len*/)
{
  if (buf == nullptr)
  {
    return nullptr;
  }
  for (size_t used = 0;;)
  {
    char byte = '\0';
    const int got = FtpReadDate(m_ftp_sdk_data.control_fd, &byte, 1, kReplySeconds);
    buf[used] = '\0';
    if (got < 1)
    {
      m_ftp_sdk_data.status = kFtpBroken;
      m_log(kFtpError, got < 0 ? "timeout or error" : "FTP server disconnected");
      return nullptr;
    }
    if (byte == '\r')
    {
      continue;
    }
    if (byte == '\n' || byte == '\0' || used == kMostReplyLine)
    {
      return buf;
    }
    buf[used++] = byte;
  }
}

int CFtpClient::FtpGetRc(char* buf, int len)
{
  if (m_ftp_sdk_data.status == kFtpIdle || m_ftp_sdk_data.status == kFtpBroken)
  {
    m_log(kFtpProgress, "ftp_getrc: Not connected");
    return 0;
  }
  while (FtpReadLine(buf, len) != nullptr)
  {
    if (buf[0] == '\0')
    {
      m_log(kFtpProgress, "Big bad error.. empty string returned by ftp_readline");
      return 0;
    }
    if (ends_reply(buf))
    {
      const int code = (buf[0] - '0') * 100 + (buf[1] - '0') * 10 + (buf[2] - '0');
      return code < 100 ? 0 : code;
    }
  }
  return 0;
}
