// Asks whether a host answers, and downloads a small file from it; the host is this process.

#include <devcomm/http_download.h>
#include <devcomm/icmp.h>
#include <devcomm/socket.h>

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{

// A server of one answer.
void serve(int listener)
{
  static const char kAnswer[] = "HTTP/1.1 206 Partial Content\r\nContent-Length: 6\r\n\r\nhello\n";
  if (select_read(listener, 5000) > 0)
  {
    const int sock = tcp_accept(listener, nullptr);
    char request[4096];
    if (recv(sock, request, sizeof request, 0) > 0)
    {
      send(sock, kAnswer, strlen(kAnswer), MSG_NOSIGNAL);
    }
    close(sock);
  }
}

} // namespace

int main()
{
  CICMP icmp; // needs the right to open a raw socket: without it nobody seems to answer
  printf("127.0.0.1 %s\n", icmp.NetIsOk("127.0.0.1") == 1 ? "answers" : "does not answer");

  sockaddr_in address{};
  const int listener = tcp_listen(0, &address);
  char path[] = "/tmp/http_download_XXXXXX";
  const int file = mkstemp(path);
  if (listener < 1 || file < 0)
  {
    return 1;
  }
  char url[64];
  snprintf(url, sizeof url, "http://127.0.0.1:%d/hello.txt", ntohs(address.sin_port));
  std::thread server(serve, listener);
  const int result = http_download(url, path);
  server.join();
  char text[16] = {};
  const bool good = result == 0 && read(file, text, sizeof text - 1) == 6 && strcmp(text, "hello\n") == 0;
  printf("downloaded: %s", text);
  close(file);
  close(listener);
  unlink(path);
  return good ? 0 : 1;
}
