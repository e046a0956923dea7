// Listing the remote file, and starting its transfer.

#include <devcomm/ftp_client.h>

#include "comm_net/deadline.h"
#include "comm_net/ftp_text.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr int kListingSeconds = 1;
constexpr size_t kMostListing = 256;
constexpr size_t kFormBytes = 10; // looked at to tell the listing's form
constexpr int kMostEntries = 2;

constexpr FtpReplyText kTransferRefusals[] = {
    // These name STOR for a download too; logs are searched by it.
    {452, "Insufficient storage space\n"},
    {421, "Server shutting down\n"},
    {450, "Remote file is busy\n"},
    {500, "Server doesn't understand STOR command\n"},
    {501, "Syntax error in STOR command\n"},
    {530, "Server says not logged in!\n"},
    {532, "Server requires an account.. not supported yet\n"},
};

/// The tokens of a line that matter; empty when the line ends before them.
struct ListingLine
{
  char size[33] = "";
  char name[129] = "";
};

ListingLine parse_unix(const char* line)
{
  ListingLine entry;
  sscanf(line, "%*s %*s %*s %*s %32s %*s %*s %*s %128s", entry.size, entry.name);
  return entry;
}

ListingLine parse_dos(const char* line)
{
  ListingLine entry;
  sscanf(line, "%*s %*s %32s %128s", entry.size, entry.name);
  return entry;
}

int32_t size_of(const char* digits)
{
  return static_cast<int32_t>(std::clamp<long long>(strtoll(digits, nullptr, 10), INT32_MIN, INT32_MAX));
}

void store(const ListingLine& line, ftp_list_entry_t* entry)
{
  const size_t length = strlen(line.name);
  entry->size = size_of(line.size);
  entry->name_len = static_cast<uint8_t>(length);
  if (entry->name_len < sizeof entry->name)
  {
    memcpy(entry->name, line.name, length + 1);
  }
}

bool is_unix_form(const char* listing)
{
  return strcspn(listing, "rwx") < std::min(strlen(listing), kFormBytes);
}

} // namespace

int CFtpClient::FtpGetServerDirFile()
{
  if (FtpCheckReady() == 0)
  {
    m_log(kFtpError, "is disconnected!\n");
    return -1;
  }
  char line[kFtpLineSize];
  if (!SendCommand(line, "TYPE I\r\n"))
  {
    m_log(kFtpError, "send cmd TYPE I to ftp server error\n");
    return -1;
  }
  if (FtpGetRc(line, sizeof line) == 0)
  {
    m_log(kFtpError, "recv from ftp server error\n");
    return -1;
  }
  const int opened = FtpOpenDataPasv();
  if (opened < 0)
  {
    return opened;
  }
  return FtpGetListFile() == 0 ? 0 : -1;
}

int CFtpClient::FtpGetListFile()
{
  memset(m_ftp_sdk_data.list_entries, 0, sizeof m_ftp_sdk_data.list_entries);
  const char* mainDir = m_ftp_sdk_data.remotedir;
  const char* file = m_ftp_sdk_data.file_name;
  char line[kFtpLineSize];
  // Without a connection FtpSendLine refuses, and says so.
  const bool allowed = FtpCheckReady() != 0 || m_ftp_sdk_data.status <= kFtpBroken;
  const bool sent =
      allowed && (m_ftp_sdk_data.has_sub_dir == 1
                      ? SendCommand(line, "LIST /%s/%s/%s\r\n", mainDir, m_ftp_sdk_data.subdir, file)
                      : SendCommand(line, "LIST /%s/%s\r\n", mainDir, file));
  if (!sent)
  {
    m_log(kFtpError, "send cmd to ftp server error\n");
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  if (code == 450 || code == 550)
  {
    return 0;
  }
  if (code != 125 && code != 150)
  {
    m_log(kFtpError, "LIST: Unrecognised error %d\n", code);
    return -1;
  }
  char listing[kMostListing + 1] = "";
  if (ReadListing(listing) != 0)
  {
    return -1;
  }
  m_log(kFtpProgress, "\n%s", listing);
  ParseListing(listing);
  return 0;
}

/// One read: the listing of one file comes in one piece. None in time is an empty listing.
int CFtpClient::ReadListing(char* listing)
{
  const int fd = m_ftp_sdk_data.data_fd;
  const int ready = Usable(fd) ? wait_through_signals(fd, POLLIN, Deadline(kListingSeconds)) : -1;
  if (ready < 0)
  {
    m_log(kFtpError, "******* select error\n");
    return -1;
  }
  if (ready == 0)
  {
    m_log(kFtpError, "****** ftp datafd ack over time\n");
    return 0;
  }
  const ssize_t got = read(fd, listing, kMostListing);
  if (got < 0)
  {
    m_log(kFtpError, "****** read error\n");
    return -1;
  }
  listing[got] = '\0';
  return 0;
}

void CFtpClient::ParseListing(char* listing)
{
  const auto parse = is_unix_form(listing) ? parse_unix : parse_dos;
  char* line = listing;
  for (int count = 0; count < kMostEntries; ++count)
  {
    char* end = strstr(line, "\r\n");
    if (end == nullptr)
    {
      m_ftp_sdk_data.list_count = count;
      return;
    }
    *end = '\0';
    store(parse(line), &m_ftp_sdk_data.list_entries[count]);
    line = end + 2;
  }
  // After two lines list_count stays as it was: one file is one line, and callers know it so.
}

int CFtpClient::FtpCreateDateSockFd(int resume, int offset)
{
  if (FtpOpenDataPasv() == -1)
  {
    return -1;
  }
  return resume == 1 ? ResumeTransfer(offset) : StartTransfer();
}

int CFtpClient::StartTransfer()
{
  const char* file = m_ftp_sdk_data.file_name;
  char line[kFtpLineSize];
  if (!SendCommand(line, m_ftp_sdk_data.transfer_mode != 0 ? "RETR %s\r\n" : "STOR %s\r\n", file))
  {
    m_log(kFtpError, "send cmd to ftp server error cmd:%s\n", line);
    return -1;
  }
  const int code = FtpGetRc(line, sizeof line);
  if (code == 125 || code == 150)
  {
    return 0;
  }
  if (const char* text = ftp_text_of(kTransferRefusals, code))
  {
    m_log(kFtpError, text);
  }
  else if (code == 553)
  {
    m_log(kFtpError, "Permission denied to upload \"%s\"\n", file);
  }
  else
  {
    m_log(kFtpError, "STOR Unrecognised error %d\n", code);
  }
  return -1;
}

int CFtpClient::ResumeTransfer(int offset)
{
  const bool download = m_ftp_sdk_data.transfer_mode != 0;
  const char* file = m_ftp_sdk_data.file_name;
  char line[kFtpLineSize];
  const bool sent =
      download ? SendCommand(line, "REST %d\r\n", offset) : SendCommand(line, "APPE %s\r\n", file);
  if (!sent)
  {
    m_log(kFtpError, "send cmd to ftp server error:%s\n", line);
    return -1;
  }
  if (!download)
  {
    return ResumeReply(line);
  }
  if (ResumeReply(line) != 0)
  {
    return -1;
  }
  if (!SendCommand(line, "RETR %s\r\n", file))
  {
    m_log(kFtpError, "send cmd to ftp server error cmd:%s\n", line);
    return -1;
  }
  return ResumeReply(line);
}

int CFtpClient::ResumeReply(char* line)
{
  const int code = FtpGetRc(line, kFtpLineSize);
  if (code == 125 || code == 150 || code == 350)
  {
    return 0;
  }
  m_log(kFtpError, "%s: Unrecognised error %d\n", line, code);
  return -1;
}
