// Request and reply over Unix-domain datagrams, beside two raw sockets that make the same system calls: the asking side
// opens, binds, connects, waits, writes, waits, receives, closes and unlinks for every request, as one-shot senders do.
// Each listener is a process of its own. All stay on one core: where the system puts two processes that talk to each
// other changes the figures tenfold, and for each pair differently.

#include "comm_server_client/bench_net.h"

#include <devcomm/unix_domain.h>

#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

namespace
{

constexpr int kRounds = 41;
constexpr double kRoundSeconds = 0.1;
constexpr size_t kDatagram = 4352;

sockaddr_un address_of(const char* path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, strlen(path));
  return address;
}

int bound(const char* path)
{
  const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = address_of(path);
  unlink(path);
  if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
  {
    fail("bind");
  }
  return sock;
}

// ---- listeners: both send the request back ----

int echo(int sock, sockaddr_un* from, unsigned* fromLen, char* data, int len, void* /*arg*/)
{
  return SendUnixDomainDataToAddr(sock, from, fromLen, data, len);
}

void serve_ours(char* path)
{
  StartUnixDomainListen(path, echo, nullptr);
  for (;;)
  {
    pause();
  }
}

void serve_raw(char* path)
{
  const int sock = bound(path);
  static char data[kDatagram];
  for (;;)
  {
    pollfd fd{sock, POLLIN, 0};
    if (poll(&fd, 1, 100) < 1)
    {
      continue;
    }
    memset(data, 0, sizeof data);
    sockaddr_un from{};
    socklen_t fromLen = sizeof from;
    const ssize_t got =
        recvfrom(sock, data, sizeof data, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (got >= 0)
    {
      sendto(sock, data, static_cast<size_t>(got), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&from), fromLen);
    }
  }
}

pid_t listener(void (*listen)(char*), char* path)
{
  const pid_t child = fork();
  if (child == 0)
  {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    listen(path);
  }
  while (access(path, F_OK) != 0)
  {
    usleep(1000);
  }
  usleep(50000);
  return child;
}

// ---- asking ----

using Ask = bool (*)(char* request, int len, const char* path, char* reply, int* replyLen);

bool ask_ours(char* request, int len, const char* path, char* reply, int* replyLen)
{
  return SendUnixDomainDataToName(request, len, path, 5, 0, 1, reply, replyLen) == 0;
}

bool ask_raw(char* request, int len, const char* path, char* reply, int* replyLen)
{
  char own[64];
  snprintf(own, sizeof own, "/tmp/unixdomain_%d", static_cast<int>(getpid()));
  const int sock = bound(own);
  const sockaddr_un peer = address_of(path);
  pollfd fd{sock, POLLOUT, 0};
  bool isGood = connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0 &&
                poll(&fd, 1, 5000) == 1 && write(sock, request, static_cast<size_t>(len)) == len;
  fd.events = POLLIN;
  isGood = isGood && poll(&fd, 1, 5000) == 1;
  const ssize_t got = isGood ? recv(sock, reply, static_cast<size_t>(*replyLen), 0) : -1;
  *replyLen = static_cast<int>(got);
  close(sock);
  unlink(own);
  return got > 0;
}

double requests_per_second(Ask ask, const char* path, int len)
{
  static char request[kDatagram];
  static char reply[kDatagram];
  int count = 0;
  const auto start = Clock::now();
  while (seconds_since(start) < kRoundSeconds)
  {
    int replyLen = sizeof reply;
    memset(request, 'a' + count % 26, static_cast<size_t>(len));
    if (!ask(request, len, path, reply, &replyLen) || replyLen != len ||
        memcmp(request, reply, static_cast<size_t>(len)) != 0)
    {
      fail("ask");
    }
    ++count;
  }
  return count / seconds_since(start);
}

} // namespace

int main()
{
  char ours[64];
  char raw[64];
  snprintf(ours, sizeof ours, "/tmp/devcomm_bench_%d_ours", static_cast<int>(getpid()));
  snprintf(raw, sizeof raw, "/tmp/devcomm_bench_%d_raw", static_cast<int>(getpid()));
  table();
  cpu_set_t core;
  CPU_ZERO(&core);
  CPU_SET(sched_getcpu(), &core);
  sched_setaffinity(0, sizeof core, &core);
  const pid_t children[] = {listener(serve_ours, ours), listener(serve_raw, raw)};
  usleep(1200000); // past the listener's long first wait
  for (const int len : {64, 4096})
  {
    std::vector<double> rates[2];
    for (int round = 0; round < kRounds; ++round)
    {
      rates[0].push_back(requests_per_second(ask_ours, ours, len));
      rates[1].push_back(requests_per_second(ask_raw, raw, len));
    }
    fprintf(
        table(),
        "| Unix-domain request and reply of %d bytes | two raw sockets, same system calls | %.2f | %.0f/s, "
        "%.0f/s |\n",
        len, median_ratio(rates[0], rates[1]), percentile(rates[0], 0.5), percentile(rates[1], 0.5));
  }
  for (const pid_t child : children)
  {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  unlink(ours);
  unlink(raw);
  return 0;
}
