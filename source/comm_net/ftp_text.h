#pragma once

#include <cstddef>

// What the sources of the FTP client share.

/// Levels of the application's log function.
constexpr unsigned int kFtpProgress = 0;
constexpr unsigned int kFtpTrouble = 1;
constexpr unsigned int kFtpError = 2;

/// Values of the session's status that the client sets.
constexpr int kFtpIdle = 0;
constexpr int kFtpBroken = 1;
constexpr int kFtpConnected = 2;
constexpr int kFtpLoggedIn = 3;
constexpr int kFtpDataOpen = 5;

/// Room for a command, and for the reply that takes its place.
constexpr size_t kFtpLineSize = 1024;

/// Room for four whole integers with dots.
constexpr size_t kPasvAddressSize = 48;

constexpr int kFtpConnectSeconds = 10;

struct FtpReplyText
{
  int code;
  const char* text;
};

/// @return the text of a code, null when the table does not have it
template <size_t N>
const char* ftp_text_of(const FtpReplyText (&table)[N], int code)
{
  for (const FtpReplyText& entry : table)
  {
    if (entry.code == code)
    {
      return entry.text;
    }
  }
  return nullptr;
}
