#pragma once

#include <devcomm/tcp_service.h>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

// What the benchmarks of the TCP service share: plain sockets for the far end, clocks, medians, table rows.

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start)
{
  return std::chrono::duration<double>(Clock::now() - start).count();
}

inline double cpu_seconds()
{
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

inline double percentile(std::vector<double> values, double part)
{
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<size_t>(part * static_cast<double>(values.size())))];
}

/// The median of the rounds' own ratios: what disturbs the machine for a while disturbs both sides of a round.
inline double median_ratio(const std::vector<double>& ours, const std::vector<double>& theirs)
{
  std::vector<double> ratios;
  for (size_t i = 0; i < ours.size(); ++i)
  {
    ratios.push_back(ours[i] / theirs[i]);
  }
  return percentile(ratios, 0.5);
}

/// Where tables go: the library's own log lines leave standard output for /dev/null.
inline FILE* table()
{
  static FILE* out = []
  {
    FILE* kept = fdopen(dup(STDOUT_FILENO), "w");
    setvbuf(kept, nullptr, _IOLBF, 0);
    return freopen("/dev/null", "w", stdout) == nullptr ? nullptr : kept;
  }();
  return out;
}

[[noreturn]] inline void fail(const char* what)
{
  perror(what);
  _exit(1);
}

/// A listening loopback socket; tells its port.
inline int listen_raw(int& port, int backlog = 1024)
{
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof address;
  if (bind(sock, reinterpret_cast<sockaddr*>(&address), len) != 0 || listen(sock, backlog) != 0 ||
      getsockname(sock, reinterpret_cast<sockaddr*>(&address), &len) != 0)
  {
    fail("listen");
  }
  port = ntohs(address.sin_port);
  return sock;
}

/// A loopback port that nobody listens on at the moment.
inline int free_port()
{
  int port = 0;
  close(listen_raw(port));
  return port;
}

/// A blocking connection without delay of small pieces.
inline int connect_raw(int port)
{
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (sock < 0 || connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
  {
    fail("connect");
  }
  const int on = 1;
  setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return sock;
}

inline bool write_all(int sock, const char* data, size_t len)
{
  while (len > 0)
  {
    const ssize_t done = send(sock, data, len, MSG_NOSIGNAL);
    if (done <= 0)
    {
      return false;
    }
    data += done;
    len -= static_cast<size_t>(done);
  }
  return true;
}

/// The library's echo, as a callback.
inline int echo_callback(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* /*server*/,
                         tcp_client_st* client, void* /*arg*/)
{
  if (state == SERVICE_STATE_RECV)
  {
    ClientSendData(client, data, len, 0);
  }
  return len;
}

/// A running server of the library.
inline tcp_server_st* start_server(int& port, int maxConn, TcpCallback_t callback, void* arg)
{
  port = free_port();
  tcp_server_st* server = ServerInit();
  if (ServerStartListen(server, port, 600000, maxConn, callback, arg) != 0)
  {
    fail("ServerStartListen");
  }
  return server;
}

/// Lets a program hold many sockets.
inline void raise_descriptor_limit()
{
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// A line of /proc/self/status, in its unit.
inline long status_value(const char* name)
{
  FILE* file = fopen("/proc/self/status", "r");
  char line[256];
  char format[64];
  snprintf(format, sizeof format, "%s: %%ld", name);
  long value = -1;
  while (file != nullptr && value < 0 && fgets(line, sizeof line, file) != nullptr)
  {
    if (sscanf(line, format, &value) != 1) // NOLINT: the format is made above
    {
      value = -1;
    }
  }
  if (file != nullptr)
  {
    fclose(file);
  }
  return value;
}
