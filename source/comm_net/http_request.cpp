#include "comm_net/http_stream.h"

#include <devcomm/http_download.h>
#include <devcomm/socket.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr int kDefaultPort = 80;
constexpr long kHighestPort = 65534; // not 65535: callers rely on it

/// Copies a part of a text, cut to the room.
template <size_t Size>
void copy_part(char (&out)[Size], const char* begin, const char* end)
{
  const size_t len = std::min<size_t>(static_cast<size_t>(end - begin), Size - 1);
  memcpy(out, begin, len);
  out[len] = '\0';
}

/// connect() that a signal does not end: the kernel goes on connecting, so wait for its outcome.
bool connect_through_signals(int sock, const sockaddr_in& peer)
{
  const Deadline patience(kHttpPatienceSec);
  if (connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0)
  {
    return true;
  }
  if (errno != EINTR)
  {
    return false;
  }
  const int ready = wait_through_signals(sock, POLLOUT, patience);
  if (ready == 0)
  {
    errno = EINPROGRESS; // as connect itself says when its time is over
  }
  return ready > 0 && check_sock_err(sock) == 0;
}

int64_t length_of_file(const char* path)
{
  struct stat info
  {
  };
  return path != nullptr && stat(path, &info) == 0 ? int64_t{info.st_size} : 0;
}

} // namespace

int parser_URL(char* url, http_t* h)
{
  if (url == nullptr || h == nullptr)
  {
    return -1;
  }
  constexpr size_t SchemeLength = sizeof "http://" - 1;
  const char* host = find_any_case(url, "http://") == nullptr ? url : url + SchemeLength;
  const char* path = strchr(host, '/');
  if (path == nullptr)
  {
    puts("url invaild");
    return -1;
  }
  h->port = kDefaultPort;
  const char* hostEnd = std::find(host, path, ':');
  if (hostEnd != path)
  {
    const long port = strtol(hostEnd + 1, nullptr, 10);
    if (port < 1 || port > kHighestPort)
    {
      puts("url port invaild");
      return -1;
    }
    h->port = static_cast<int32_t>(port);
  }
  copy_part(h->host, host, hostEnd);
  copy_part(h->uri, path, path + strlen(path));
  printf("parse url ok\nhost:%s, port:%d, uri:%s\n", h->host, h->port, h->uri);
  return 0;
}

int dns(const char* name)
{
  sockaddr_in address{};
  if (net_make_addr(name, 0, &address) != 0)
  {
    printf("gethostbyname %s failed\n", name == nullptr ? "(null)" : name);
    return -1;
  }
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  printf("%s address is %s\n", name, text);
  return static_cast<int>(address.sin_addr.s_addr);
}

int set_socket_option(int fd)
{
  timeval limit{};
  limit.tv_sec = kHttpPatienceSec;
  printf("%ds %dus\n", static_cast<int>(limit.tv_sec), static_cast<int>(limit.tv_usec));
  if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0 ||
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
  {
    printf("setsockopt error: %s\n", strerror(errno));
    return -1;
  }
  return 0;
}

int connect_server(http_t* h)
{
  if (h == nullptr)
  {
    return -1;
  }
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (sock < 0)
  {
    puts("socket create failed");
    return -1;
  }
  if (set_socket_option(sock) != 0)
  {
    close(sock);
    return -1;
  }
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<uint16_t>(h->port));
  const int address = dns(h->host);
  if (address == -1)
  {
    puts("Get Dns Failed");
    close(sock);
    return -1;
  }
  peer.sin_addr.s_addr = static_cast<in_addr_t>(address);
  if (!connect_through_signals(sock, peer))
  {
    printf("connect failed: %s\n", strerror(errno));
    close(sock);
    return -1;
  }
  h->sock = sock;
  return 0;
}

int send_request(http_t* h)
{
  if (h == nullptr)
  {
    return -1;
  }
  const int len = snprintf(
      h->buf, sizeof h->buf - 1,
      "GET %s HTTP/1.1\r\nRANGE: bytes=%lld-\r\nAccept: */*\r\nHost: %s\r\nConnection: Close\r\n\r\n", h->uri,
      static_cast<long long>(length_of_file(h->save_path)), h->host);
  printf("request:\n%s\n", h->buf);
  ssize_t sent;
  do
  {
    sent = send(h->sock, h->buf, static_cast<size_t>(len), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return static_cast<int>(sent);
}
