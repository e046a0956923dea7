// Uploads a file, going on where an earlier attempt was cut off:
//   example_ftp_upload HOST PORT USER PASSWORD DIRECTORY FILE

#include <devcomm/ftp_client.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static int log_line(unsigned int level, const char* format, ...)
{
  va_list arguments;
  va_start(arguments, format);
  fprintf(stderr, "%u: ", level);
  vfprintf(stderr, format, arguments);
  fputc('\n', stderr);
  va_end(arguments);
  return 0;
}

static bool send_rest(CFtpClient& client, FILE* file, long from)
{
  const int data = client.FtpGetClientData()->data_fd;
  char block[65536];
  size_t got = 0;
  bool good = fseek(file, from, SEEK_SET) == 0;
  while (good && (got = fread(block, 1, sizeof block, file)) > 0)
  {
    good = client.FtpWriteDate(data, block, static_cast<unsigned int>(got), 10) == static_cast<int>(got);
  }
  // The end of the data connection ends the file; only the server's 226 says that it has all of it.
  char reply[1024];
  client.FtpCloseSockFd(data);
  return good && ferror(file) == 0 && client.FtpGetRc(reply, sizeof reply) == 226;
}

int main(int argc, char** argv)
{
  if (argc != 7)
  {
    printf("usage: %s HOST PORT USER PASSWORD DIRECTORY FILE\n", argv[0]);
    return argc == 1 ? 0 : 2;
  }
  FILE* file = fopen(argv[6], "rb");
  if (file == nullptr)
  {
    perror(argv[6]);
    return 1;
  }
  UserDefServerSet_t server{};
  server.server_port = static_cast<uint16_t>(strtol(argv[2], nullptr, 10));
  snprintf(server.server_addr, sizeof server.server_addr, "%s", argv[1]);
  snprintf(server.username, sizeof server.username, "%s", argv[3]);
  snprintf(server.password, sizeof server.password, "%s", argv[4]);
  snprintf(server.remotedir, sizeof server.remotedir, "%s", argv[5]);
  const char* slash = strrchr(argv[6], '/');

  CFtpClient client;
  client.Init(log_line);
  client.FtpSetServerInfo(0, &server);
  client.FtpSetLocalInfo("", slash == nullptr ? argv[6] : slash + 1);
  bool sent = false;
  if (client.FtpStart() == 0 && client.FtpGetServerDirFile() == 0)
  {
    const int there = client.FtpGetClientData()->list_entries[0].size;
    sent = client.FtpCreateDateSockFd(there > 0 ? 1 : 0, 0) == 0 && send_rest(client, file, there);
  }
  client.FtpClose();
  fclose(file);
  puts(sent ? "sent" : "not sent");
  return sent ? 0 : 1;
}
