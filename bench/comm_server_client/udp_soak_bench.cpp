// Load that the UDP service must hold on loopback, every loss counted: twenty thousand datagrams a second received for
// ten seconds, and as many messages a second queued. What does not arrive must be what the kernel says it dropped for
// want of room in the socket's buffer. Exit status 1 when anything is unaccounted for, damaged or out of order.
//
// An argument gives other seconds.

#include "comm_server_client/bench_net.h"

#include <devcomm/socket.h>
#include <devcomm/udp_client.h>

#include <sys/prctl.h>

#include <atomic>
#include <cstring>
#include <ctime>

namespace
{

constexpr int kPerMs = 20;
constexpr size_t kMessage = 64;

struct Message
{
  uint32_t number;
  char filling[kMessage - sizeof(uint32_t)];
};
static_assert(sizeof(Message) == kMessage, "the datagrams' layout");

Message message(uint32_t number)
{
  Message made{};
  made.number = number;
  memset(made.filling, static_cast<int>(number % 251), sizeof made.filling);
  return made;
}

/// What came: written by one thread, read when nothing comes any more.
struct Tally
{
  void Add(const char* data, size_t len)
  {
    for (; len >= kMessage; data += kMessage, len -= kMessage)
    {
      Message got;
      memcpy(&got, data, sizeof got);
      const Message wanted = message(got.number);
      bad += memcmp(&got, &wanted, sizeof got) != 0 || static_cast<int64_t>(got.number) <= last ? 1 : 0;
      last = got.number;
      received.fetch_add(1, std::memory_order_relaxed);
    }
    bad += len > 0 ? 1 : 0; // no datagram here is cut
  }
  std::atomic<uint64_t> received{0};
  uint64_t bad = 0;
  int64_t last = -1;
};

int on_event(SERVICE_STATE_E state, const char* data, int len, udp_client_st* /*client*/, void* arg)
{
  if (state == SERVICE_STATE_RECV)
  {
    static_cast<Tally*>(arg)->Add(data, static_cast<size_t>(len));
  }
  return len;
}

sockaddr_in loopback_address(int sock)
{
  sockaddr_in address{};
  socklen_t len = sizeof address;
  getsockname(sock, reinterpret_cast<sockaddr*>(&address), &len);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// Datagrams that the kernel dropped at the socket of a port.
uint64_t kernel_drops(int port)
{
  FILE* file = fopen("/proc/net/udp", "r");
  char line[512];
  unsigned long long drops = 0;
  while (file != nullptr && fgets(line, sizeof line, file) != nullptr)
  {
    unsigned local = 0;
    // Lines are padded behind the last number.
    for (char* end = line + strlen(line) - 1; end > line && (*end == '\n' || *end == ' '); --end)
    {
      *end = '\0';
    }
    const char* lastWord = strrchr(line, ' ');
    if (sscanf(line, " %*d: %*x:%x", &local) == 1 && static_cast<int>(local) == port && lastWord != nullptr)
    {
      drops = strtoull(lastWord, nullptr, 10);
    }
  }
  if (file != nullptr)
  {
    fclose(file);
  }
  return drops;
}

/// Calls send(number) twenty times a millisecond; late milliseconds are made up for.
template <typename Send>
double paced(uint32_t count, Send send)
{
  prctl(PR_SET_TIMERSLACK, 1UL);
  const auto start = Clock::now();
  timespec due{};
  clock_gettime(CLOCK_MONOTONIC, &due);
  for (uint32_t number = 0; number < count; ++number)
  {
    if (number % kPerMs == 0)
    {
      due.tv_nsec += 1000000;
      due.tv_sec += due.tv_nsec / 1000000000;
      due.tv_nsec %= 1000000000;
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    }
    send(message(number));
  }
  return seconds_since(start);
}

void settle(const std::atomic<uint64_t>& count)
{
  uint64_t before = 0;
  do
  {
    before = count.load();
    usleep(300000);
  } while (before != count.load());
}

bool receive_row(uint32_t count)
{
  Tally tally;
  const int sock = udp_unicast_init(0, nullptr);
  sockaddr_in address = loopback_address(sock);
  const int port = ntohs(address.sin_port);
  udp_client_st* client = UdpClientInit();
  UdpClientStart(client, sock, address, on_event, &tally);
  const int sender = udp_unicast_init(-1, nullptr);
  set_block_ctl(sender, 0);
  uint64_t sent = 0;
  const double cpu = cpu_seconds();
  const double elapsed =
      paced(count,
            [&](const Message& made)
            {
              sent += udp_write(sender, reinterpret_cast<const char*>(&made), sizeof made,
                                reinterpret_cast<sockaddr*>(&address)) == static_cast<int>(kMessage)
                          ? 1
                          : 0;
            });
  settle(tally.received);
  const double used = cpu_seconds() - cpu;
  const uint64_t dropped = kernel_drops(port);
  UdpClientUninit(client);
  close(sender);
  const auto missing = static_cast<long long>(sent - tally.received - dropped);
  fprintf(table(),
          "| %.0f datagrams/s received for %.0f s | - | - | %llu sent, %llu received, %llu dropped by the "
          "kernel, %lld "
          "unaccounted for, %llu bad; processor %.0f%% with the sender |\n",
          count / elapsed, elapsed, static_cast<unsigned long long>(sent),
          static_cast<unsigned long long>(tally.received.load()), static_cast<unsigned long long>(dropped),
          missing, static_cast<unsigned long long>(tally.bad), 100 * used / elapsed);
  return missing == 0 && tally.bad == 0 && sent == count;
}

bool send_row(uint32_t count)
{
  Tally tally;
  std::atomic<uint64_t> datagrams{0};
  const int sock = udp_unicast_init(0, nullptr);
  set_block_ctl(sock, 0);
  const sockaddr_in address = loopback_address(sock);
  std::thread receiver(
      [&]
      {
        static char data[65536];
        for (ssize_t got = recv(sock, data, sizeof data, 0); got > 0; got = recv(sock, data, sizeof data, 0))
        {
          tally.Add(data, static_cast<size_t>(got));
          ++datagrams;
        }
      });
  Tally unused;
  udp_client_st* client = UdpClientInit();
  UdpClientStart(client, udp_unicast_init(-1, nullptr), address, on_event, &unused);
  const double elapsed =
      paced(count, [&](const Message& made)
            { UdpClientSendData(client, reinterpret_cast<const char*>(&made), sizeof made); });
  settle(tally.received);
  const uint64_t dropped = kernel_drops(ntohs(address.sin_port));
  UdpClientUninit(client);
  const int waker = udp_unicast_init(-1, nullptr);
  sendto(waker, "", 0, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address); // ends the receiver
  receiver.join();
  close(waker);
  close(sock);
  fprintf(table(),
          "| %.0f messages/s queued for %.0f s | - | - | %u queued, %llu received in %llu datagrams, %llu "
          "datagrams "
          "dropped by the kernel, %llu bad |\n",
          count / elapsed, elapsed, count, static_cast<unsigned long long>(tally.received.load()),
          static_cast<unsigned long long>(datagrams.load()), static_cast<unsigned long long>(dropped),
          static_cast<unsigned long long>(tally.bad));
  return tally.received == count && tally.bad == 0;
}

} // namespace

int main(int argc, char** argv)
{
  const int seconds = argc > 1 ? atoi(argv[1]) : 10;
  const auto count = static_cast<uint32_t>(std::max(seconds, 1)) * 1000 * kPerMs;
  table();
  const bool isGood = receive_row(count);
  return send_row(count) && isGood ? 0 : 1;
}
