// Load that the TCP service must hold: two thousand connections at once, twenty thousand that come and go, and a
// gibibyte echoed in pieces of random size. Exit status 1 when anything is lost or left behind.

#include "comm_server_client/bench_net.h"

#include <dirent.h>

#include <atomic>
#include <cstring>

namespace
{

constexpr int kAtOnce = 2000;
constexpr int kCycles = 20000;
constexpr int kWarmUp = 500;
constexpr uint64_t kEchoBytes = 1ULL << 30;
constexpr size_t kLongest = 65536;

int open_descriptors()
{
  DIR* folder = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(folder) != nullptr)
  {
    ++count;
  }
  closedir(folder);
  return count - 3; // ".", ".." and the folder itself
}

/// FNV-1a over whole words, the order of the bytes included.
class Hash
{
public:
  void Add(const char* data, size_t len)
  {
    for (size_t i = 0; i < len; ++i)
    {
      m_value = (m_value ^ static_cast<unsigned char>(data[i])) * 1099511628211ULL;
    }
  }
  uint64_t Value() const
  {
    return m_value;
  }

private:
  uint64_t m_value = 14695981039346656037ULL;
};

uint64_t next_random(uint64_t& state)
{
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return state;
}

void wait_for_count(tcp_server_st* server, int count)
{
  const auto start = Clock::now();
  while (ServerGetConnCount(server) != count && seconds_since(start) < 30)
  {
    usleep(1000);
  }
}

/// One echo on a connection; also tells that its thread runs.
bool is_served(int sock)
{
  char answer[4] = {};
  return write_all(sock, "here", 4) && recv(sock, answer, 4, MSG_WAITALL) == 4 &&
         memcmp(answer, "here", 4) == 0;
}

bool at_once(tcp_server_st* server, int port)
{
  const auto start = Clock::now();
  std::vector<int> socks;
  int served = 0;
  for (int i = 0; i < kAtOnce; ++i)
  {
    socks.push_back(connect_raw(port));
    served += is_served(socks.back()) ? 1 : 0; // accepted before the next comes: the backlog is short
  }
  const double connecting = seconds_since(start);
  const int listed = ServerGetConnCount(server);
  const auto again = Clock::now();
  int servedAgain = 0;
  for (const int sock : socks)
  {
    write_all(sock, "here", 4);
  }
  for (const int sock : socks)
  {
    char answer[4];
    servedAgain += recv(sock, answer, 4, MSG_WAITALL) == 4 ? 1 : 0;
  }
  fprintf(table(),
          "| %d connections at once | - | - | %d listed, %d and %d served; connected in %.1f s, all echoed "
          "in %.2f s |\n",
          kAtOnce, listed, served, servedAgain, connecting, seconds_since(again));
  for (const int sock : socks)
  {
    close(sock);
  }
  wait_for_count(server, 0);
  return listed == kAtOnce && served == kAtOnce && servedAgain == kAtOnce;
}

bool cycles(tcp_server_st* server, int port)
{
  const auto cycle = [&](int count)
  {
    int served = 0;
    for (int i = 0; i < count; ++i)
    {
      const int sock = connect_raw(port);
      served += is_served(sock) ? 1 : 0;
      close(sock);
    }
    wait_for_count(server, 0);
    usleep(200000); // the last threads are listed no more, but not yet gone
    return served;
  };
  cycle(kWarmUp);
  const int descriptors = open_descriptors();
  const long threads = status_value("Threads");
  const long size = status_value("VmSize");
  const long resident = status_value("VmRSS");
  const auto start = Clock::now();
  const int served = cycle(kCycles);
  const double rate = kCycles / seconds_since(start);
  const int moreDescriptors = open_descriptors() - descriptors;
  const long moreThreads = status_value("Threads") - threads;
  const long moreResident = status_value("VmRSS") - resident;
  fprintf(table(),
          "| %d connections that come and go | - | - | %d served, %.0f/s; left behind: %d descriptors, %ld "
          "threads, %ld KiB resident, %ld KiB mapped |\n",
          kCycles, served, rate, moreDescriptors, moreThreads, moreResident, status_value("VmSize") - size);
  // A single lost byte per connection would be 20 KiB; the allocator's own unrest stays below 256.
  return served == kCycles && moreDescriptors == 0 && moreThreads == 0 && moreResident < 256;
}

bool big_echo(int port)
{
  const int sock = connect_raw(port);
  Hash sent;
  Hash received;
  const auto start = Clock::now();
  std::thread sender(
      [&]
      {
        std::vector<char> piece(kLongest);
        uint64_t random = 88172645463325252ULL;
        for (uint64_t left = kEchoBytes; left > 0;)
        {
          const size_t len =
              static_cast<size_t>(std::min<uint64_t>(left, 1 + next_random(random) % kLongest));
          for (size_t i = 0; i < len; i += sizeof random)
          {
            const uint64_t word = next_random(random);
            memcpy(&piece[i], &word, std::min(sizeof word, len - i));
          }
          sent.Add(piece.data(), len);
          if (!write_all(sock, piece.data(), len))
          {
            return;
          }
          left -= len;
        }
      });
  std::vector<char> data(kLongest);
  uint64_t bytes = 0;
  while (bytes < kEchoBytes)
  {
    const ssize_t got = recv(sock, data.data(), data.size(), 0);
    if (got <= 0)
    {
      break;
    }
    received.Add(data.data(), static_cast<size_t>(got));
    bytes += static_cast<uint64_t>(got);
  }
  sender.join();
  const double elapsed = seconds_since(start);
  close(sock);
  const bool isEqual = bytes == kEchoBytes && sent.Value() == received.Value();
  fprintf(table(), "| 1 GiB echoed in pieces of 1 to 65536 bytes | - | - | hash %s (%016llx), %.0f MB/s |\n",
          isEqual ? "equal" : "DIFFERS", static_cast<unsigned long long>(received.Value()),
          static_cast<double>(bytes) / elapsed / 1e6);
  return isEqual;
}

} // namespace

int main()
{
  table();
  raise_descriptor_limit();
  int port = 0;
  tcp_server_st* server = start_server(port, 10 * kAtOnce, echo_callback, nullptr);
  const bool isGood = static_cast<int>(at_once(server, port)) + static_cast<int>(cycles(server, port)) +
                          static_cast<int>(big_echo(port)) ==
                      3;
  ServerStopListen(server);
  ServerUninit(server);
  fflush(table());
  return isGood ? 0 : 1;
}
