#include <devcomm/ftp_client.h>

#include "comm_net/ftp_text.h"

namespace
{

// Device logs are searched by these line numbers.
constexpr char kReenterLine[] = "725"; // as text, which the message's conversion wants
constexpr int kPasswordLine = 785;

constexpr FtpReplyText kReenterRefusals[] = {
    {500, "This server doesn't allow you to re-login\n"},
    {502, "This server doesn't allow you to re-login\n"},
    {120, "Service not ready...try again later\n"},
};

constexpr FtpReplyText kUserRefusals[] = {
    {332, "This program does not support user accounts\n"},
    {421, "Service unavailable\n"},
    {500, "Server doesn't understand USER\n"},
    {501, "Server can't understand USER command\n"},
};

constexpr FtpReplyText kPasswordRefusals[] = {
    {421, "ftp_login: Service is unavailable\n"}, {530, "Login incorrect\n"},
    {500, "Server doesn't understand PASS\n"},    {501, "Server doesn't understand PASS\n"},
    {503, "Server doesn't understand PASS\n"},
};

} // namespace

int CFtpClient::FtpLogin()
{
  if (m_ftp_sdk_data.status == kFtpLoggedIn && Reenter() != 0)
  {
    return -1;
  }
  if (m_ftp_sdk_data.status != kFtpConnected && m_ftp_sdk_data.status != kFtpLoggedIn)
  {
    m_ftp_sdk_data.status = kFtpBroken;
    m_log(kFtpError, "ftp_login: Server is not waiting for login\n");
    return -1;
  }
  char line[kFtpLineSize];
  if (!SendCommand(line, "USER %s\r\n", m_ftp_sdk_data.username))
  {
    m_log(kFtpError, "send ftp cmd(USER %s) error\n", m_ftp_sdk_data.username);
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  switch (code)
  {
  case 230:
    m_log(kFtpProgress, "Don't need to send password\n");
    m_ftp_sdk_data.status = kFtpLoggedIn;
    return 0;
  case 331:
    return SendPassword();
  case 530:
    m_log(kFtpError, "Not logged in as %s\n", m_ftp_sdk_data.username);
    return -1;
  default:
    break;
  }
  if (const char* text = ftp_text_of(kUserRefusals, code))
  {
    m_log(kFtpError, text);
    return -1;
  }
  m_log(kFtpError, "Unknown response to USER: %d\n", code);
  return -1;
}

/// Ends the present login, so that another can follow on the same connection.
int CFtpClient::Reenter()
{
  char line[kFtpLineSize];
  if (!SendCommand(line, "REIN\r\n"))
  {
    m_log(kFtpError, "send ftp cmd(REIN) error\n");
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  if (code == 220)
  {
    return 0;
  }
  if (const char* text = ftp_text_of(kReenterRefusals, code))
  {
    m_log(kFtpError, text);
  }
  else if (code == 421)
  {
    m_log(kFtpError, "%s:%s Service unavailable\n", "FtpLogin", kReenterLine);
  }
  else
  {
    m_log(kFtpError, "Unknown response %d\n", code);
  }
  return -1;
}

int CFtpClient::SendPassword()
{
  char line[kFtpLineSize];
  if (!SendCommand(line, "PASS %s\r\n", m_ftp_sdk_data.password))
  {
    m_log(kFtpError, "%s:%d send cmd (PASS %s) failed\n", "FtpLogin", kPasswordLine, m_ftp_sdk_data.password);
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  if (code == 230 || code == 202)
  {
    m_ftp_sdk_data.status = kFtpLoggedIn;
    return 0;
  }
  if (code == 530)
  {
    m_ftp_sdk_data.status = kFtpBroken;
  }
  if (const char* text = ftp_text_of(kPasswordRefusals, code))
  {
    m_log(kFtpError, text);
    return -1;
  }
  m_log(kFtpError, "Unknown response to PASS: %d\n", code);
  return -1;
}
