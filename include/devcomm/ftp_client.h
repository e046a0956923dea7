#pragma once

/// @file
/// A blocking FTP client (RFC 959, passive mode) that uploads or downloads one file, from the start or from where
/// an earlier attempt stopped.

#include <devcomm/export.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

/// The server to use; the texts end at a NUL or at their field, whichever comes first.
struct UserDefServerSet_t
{
  uint16_t server_port; ///< host byte order
  char server_addr[32]; ///< host name or dotted address; 31 characters count
  char username[32];    ///< 23 characters count
  char password[32];    ///< 23 characters count
  char remotedir[128];  ///< main directory, without leading "/"; 127 characters count
};

/// One entry of a listing.
struct ftp_list_entry_t
{
  int32_t size;     ///< bytes, 2147483647 also for anything larger; 0 for a directory
  char name[127];   ///< empty when the name is longer than 126 characters; its first word when it has blanks
  uint8_t name_len; ///< the name's length
};

/// The session: all zero at first and after FtpSetServerInfo.
struct ftp_sdk_data_t
{
  int32_t transfer_mode; ///< 0: upload, else download
  int32_t control_fd;    ///< 0: none
  int32_t data_fd;       ///< 0: none. Keeps the number of a closed socket until the next one replaces it
  uint16_t server_port;  ///< host byte order
  uint16_t has_sub_dir;  ///< 1: subdir is not empty
  char server_addr[32];
  char server_ip[16]; ///< dotted address of the control connection's peer; data connections go there too
  char username[24];
  char password[24];
  char remotedir[128];
  char subdir[128]; ///< below remotedir
  char file_name[128];
  int32_t
      status; ///< 0 idle, 1 broken, 2 connected, 3 logged in, 5 data connection open; 4, 99 are the caller's
  int32_t aux_value;  ///< the caller's; cleared by FtpSetLocalInfo
  int32_t list_count; ///< lines of the last listing when there were fewer than two; two leave it as it was
  ftp_list_entry_t list_entries[2];
};

/// Gets every diagnostic: level 0 progress and benign replies, 1 transient trouble in a timed read or write,
/// 2 errors; then a printf format and its arguments, which live as long as the call. Its result is ignored.
typedef int (*FtpLog_t)(unsigned int level, const char* format, ...);

/// One session with one server, on one thread at a time; nothing is locked.
///
/// Order of use: Init, FtpSetServerInfo, FtpSetLocalInfo, FtpStart, FtpGetServerDirFile where the remote size
/// matters, FtpCreateDateSockFd; then the caller moves the bytes with FtpWriteDate or FtpReadDate on data_fd of
/// FtpGetClientData. An upload ends with FtpCloseSockFd(data_fd), and is safe with the server once FtpGetRc
/// answers 226 or 250. A download that ends at end of file is whole only if FtpGetRc answers the same, or the size
/// is the expected one. FtpClose ends the session.
///
/// Results are 0 for success and -1 for failure unless stated. Calls block: 5 s for each command written, 60 s for
/// each byte of a reply, 10 s for a connection, 1 s for a listing, beyond that only while the server keeps sending
/// reply lines or 120 greetings. A failed or timed-out control connection puts status to 1, and every command is
/// refused until FtpStart succeeds again. Commands need a logged-in session (FtpCheckReady), and one longer than
/// 1023 bytes, or with a line end inside, is refused like a failed send. No SIGPIPE is raised; signals end no wait.
///
/// The log shows the password, in FtpSetServerInfo and when PASS cannot be sent.
class DEVCOMM_API CFtpClient
{
public:
  CFtpClient();

  /// Closes nothing: that is for FtpClose, FtpCloseFd or FtpDisconnect.
  ~CFtpClient() = default;

  CFtpClient(const CFtpClient&) = delete;
  CFtpClient& operator=(const CFtpClient&) = delete;

  // Settings and state -------------------------------------------------------------------------------------

  /// Sets the log function; to be called first. @return -1 for null, which changes nothing
  int Init(FtpLog_t log);

  /// Clears the session record and takes the settings. Open sockets are forgotten, not closed.
  ///
  /// @param transferMode  0: upload, else download
  /// @param server        copied; null: -1 and nothing is changed
  int FtpSetServerInfo(int transferMode, UserDefServerSet_t* server);

  /// Names the file, and the sub-directory below remotedir it lies in; 127 characters of each count.
  ///
  /// @param subdir    may be null or empty: the file lies in remotedir
  /// @param fileName  may be null: empty
  int FtpSetLocalInfo(const char* subdir, const char* fileName);

  /// @return the session record, which lives as long as the client
  ftp_sdk_data_t* FtpGetClientData();

  /// @return 1 when logged in (any status but 0, 1, 2, 4 and 99), else 0
  int FtpCheckReady();

  // A whole session ----------------------------------------------------------------------------------------

  /// Connects, logs in, and makes (for an upload) and enters the directories, whose replies are not looked at: a
  /// directory that is missing shows when the transfer is refused. -1 when a session is running.
  int FtpStart();

  /// Switches to binary and lists the file: its size and name are in list_entries[0], zero when it is missing.
  ///
  /// @return 0, -1, or -2 as FtpOpenDataPasv
  int FtpGetServerDirFile();

  /// Opens the data connection and starts the transfer of file_name; no TYPE is sent, so that an unlisted session
  /// transfers in the server's default type.
  ///
  /// @param resume  1: continues, a download with REST and RETR, an upload with APPE; else RETR or STOR
  /// @param offset  where a resumed download continues, also 0
  int FtpCreateDateSockFd(int resume, int offset);

  /// Writes all of buf, waiting up to timeoutSec seconds whenever the descriptor takes nothing.
  ///
  /// @param fd   1 or above, of any kind
  /// @param len  up to 2147483647
  /// @return len, or -1; then any part may have been written
  int FtpWriteDate(int fd, const char* buf, unsigned int len, int timeoutSec);

  /// Waits up to timeoutSec seconds and reads once.
  ///
  /// @return bytes read, 0 at the end of the connection, or -1
  int FtpReadDate(int fd, void* buf, unsigned int len, int timeoutSec);

  /// Sends QUIT without waiting for its reply and closes both sockets; status 0. @return 0
  int FtpClose();

  /// Closes both sockets; status 0. @return 0
  int FtpCloseFd();

  /// Sends QUIT when logged in, reads the reply and closes the control socket; status 1. The data socket stays.
  ///
  /// @return -1 when QUIT could not be sent; the socket is closed all the same
  int FtpDisconnect();

  // The steps ----------------------------------------------------------------------------------------------

  /// Resolves, connects and reads the greeting; 0 at once when connected. A 120 greeting is waited out in rounds
  /// of 15 s without limit, cut short when the server closes. After a greeting other than 220 status stays 2.
  int FtpConnect();

  /// Logs in, from status 2, or anew with REIN from status 3.
  int FtpLogin();

  /// Logs the server's working directory, 128 characters of it.
  int FtpPwd();

  /// Makes remotedir (which 0; -1 when empty), else subdir, below the working directory. -1 also when it exists.
  int FtpMkd(int which);
  int FtpMkd(char* path);

  /// Enters /remotedir (which 0) or /remotedir/subdir. When subdir is set and equals remotedir, nothing is sent and
  /// the result is 0: callers that keep one directory in both fields rely on it.
  int FtpCwd(int which);

  /// Enters path, as it is.
  int FtpCwd(char* path);

  /// Closes the old data connection and opens a passive one, to server_ip whatever address the server names.
  ///
  /// @return 0 when open; -1; -2 when the server closes or has no port (then the session is disconnected); 0 also
  ///         for replies that refuse PASV, without data connection: the transfer command is refused then
  int FtpOpenDataPasv();

  /// Lists the file on the data connection. A missing file is no failure. list_count is 0 or 1 after that many
  /// complete lines; after two it is left as it was. The connection stays open and its completion reply unread,
  /// both of which the next FtpOpenDataPasv takes care of.
  int FtpGetListFile();

  /// Writes one command line, CR LF included. @return bytes written, 0 in status 0 or 1, -1 on failure
  int FtpSendLine(char* line);

  /// Reads one reply line without its end. Longer lines come in parts of 200, less the 201st character.
  ///
  /// @param buf  room for 201 bytes, whatever len says
  /// @return buf, or null when the line did not come
  char* FtpReadLine(char* buf, int len);

  /// Reads a reply, passing over all lines but the last. buf and len as for FtpReadLine.
  ///
  /// @return its code, 0 when there is none
  int FtpGetRc(char* buf, int len);

  // Tools --------------------------------------------------------------------------------------------------

  /// Connects within timeoutSec seconds, 0: no limit. errno tells why not, ETIMEDOUT that time was over; a failure
  /// may leave fd non-blocking, success leaves its mode as it was.
  int FtpConnectNonb(int fd, sockaddr* addr, unsigned int len, int timeoutSec);

  /// Makes fd non-blocking, or blocking for 0.
  int FtpSetSockBlocking(int fd, int nonblocking);

  /// Sets address reuse, the buffer sizes in bytes and, when keepalive is not 0, keep-alive and no delay. Only a
  /// refused size is a failure.
  int FtpSetSockBufSize(int fd, int recvBuf, int sendBuf, int keepalive);

  /// Reads "h1,h2,h3,h4,p1,p2"; numbers may be octal (0...) or hexadecimal (0x...) and are not checked.
  ///
  /// @param ipOut  receives "h1.h2.h3.h4": room for 48 bytes; may be null. Untouched on failure
  /// @return p1 * 256 + p2, whose low 16 bits are the port; -1 when a number is missing
  int FtpParsePasv(char* numbers, char* ipOut);

  /// Closes fd when it is 1 or above. A data_fd closed here is not closed again by the client.
  int FtpCloseSockFd(int fd);

  /// @return the text of a reply code, "Unknown error" for any other; static
  const char* FtpErrorMessage(int code);

private:
  bool SendCommand(char* line, const char* format, ...) __attribute__((format(printf, 3, 4)));
  static int OpenStream();
  int ConnectControl(sockaddr_in& server);
  int ReadGreeting();
  int Reenter();
  int SendPassword();
  int MakeDirectory(char* line, bool sent);
  int EnterDirectory(char* line, bool sent, const char* command);
  void EnterUploadDirectory();
  int RefusedPasv(int code);
  int ConnectData(uint16_t port);
  int ReadListing(char* listing);
  void ParseListing(char* listing);
  int StartTransfer();
  int ResumeTransfer(int offset);
  int ResumeReply(char* line);
  int WaitFor(int fd, short events, int timeoutSec, const char* interrupted);
  bool Usable(int fd) const;
  void CloseData();
  void CloseControl();

  FtpLog_t m_log;
  ftp_sdk_data_t m_ftp_sdk_data;
  int m_endedFd; // data_fd's number once it is closed: it may be somebody else's by now. 0: data_fd is ours
};

static_assert(sizeof(UserDefServerSet_t) == 226 && sizeof(ftp_list_entry_t) == 132 &&
                  sizeof(ftp_sdk_data_t) == 772,
              "applications share these records: fields follow each other without gaps");
