// Echo of small messages and a one-way stream through the TCP service, beside a raw blocking loop on a thread per
// connection and, for the echo, Boost.Asio on epoll. One load generator drives them in alternating rounds.

#include "comm_server_client/bench_net.h"

#include <boost/asio.hpp>

#include <sys/epoll.h>

#include <atomic>
#include <cstring>
#include <memory>

namespace
{

constexpr size_t kMessage = 64;
constexpr size_t kChunk = 64 * 1024;
constexpr int kRounds = 25;
constexpr double kRoundSeconds = 0.2;

// ---- servers ----

void serve_raw(int listenSock)
{
  for (;;)
  {
    const int sock = accept(listenSock, nullptr, nullptr);
    std::thread(
        [sock]
        {
          char data[4096];
          for (ssize_t got = read(sock, data, sizeof data); got > 0; got = read(sock, data, sizeof data))
          {
            write_all(sock, data, static_cast<size_t>(got));
          }
          close(sock);
        })
        .detach();
  }
}

struct AsioSession : std::enable_shared_from_this<AsioSession>
{
  explicit AsioSession(boost::asio::ip::tcp::socket s) : socket(std::move(s)) {}
  void Read()
  {
    socket.async_read_some(boost::asio::buffer(data),
                           [self = shared_from_this()](boost::system::error_code error, size_t got)
                           {
                             if (!error)
                             {
                               self->Write(got);
                             }
                           });
  }
  void Write(size_t count)
  {
    boost::asio::async_write(socket, boost::asio::buffer(data, count),
                             [self = shared_from_this()](boost::system::error_code error, size_t)
                             {
                               if (!error)
                               {
                                 self->Read();
                               }
                             });
  }
  boost::asio::ip::tcp::socket socket;
  char data[4096];
};

void accept_asio(boost::asio::ip::tcp::acceptor& acceptor)
{
  acceptor.async_accept(
      [&acceptor](boost::system::error_code error, boost::asio::ip::tcp::socket socket)
      {
        if (!error)
        {
          std::make_shared<AsioSession>(std::move(socket))->Read();
        }
        accept_asio(acceptor);
      });
}

void serve_asio(int listenSock)
{
  boost::asio::io_context context(1);
  boost::asio::ip::tcp::acceptor acceptor(context, boost::asio::ip::tcp::v4(), listenSock);
  accept_asio(acceptor);
  context.run();
}

// ---- echo load: one message under way on every connection ----

double echoes_per_second(int port, int connections)
{
  const int poller = epoll_create1(EPOLL_CLOEXEC);
  const char message[kMessage] = "echo";
  std::vector<int> socks;
  std::vector<size_t> received(static_cast<size_t>(connections));
  for (int i = 0; i < connections; ++i)
  {
    socks.push_back(connect_raw(port));
    epoll_event want{};
    want.events = EPOLLIN;
    want.data.u32 = static_cast<uint32_t>(i);
    epoll_ctl(poller, EPOLL_CTL_ADD, socks.back(), &want);
    write_all(socks.back(), message, kMessage); // the first round trip is outside the time
    char answer[kMessage];
    recv(socks.back(), answer, kMessage, MSG_WAITALL);
  }
  for (const int sock : socks)
  {
    write_all(sock, message, kMessage);
  }
  long echoes = 0;
  const auto start = Clock::now();
  while (seconds_since(start) < kRoundSeconds)
  {
    epoll_event ready[64];
    const int count = epoll_wait(poller, ready, 64, 1000);
    for (int i = 0; i < count; ++i)
    {
      char data[kMessage];
      const size_t index = ready[i].data.u32;
      const ssize_t got = read(socks[index], data, sizeof data);
      received[index] += got > 0 ? static_cast<size_t>(got) : 0;
      if (received[index] >= kMessage)
      {
        received[index] -= kMessage;
        ++echoes;
        write_all(socks[index], message, kMessage);
      }
    }
  }
  const double elapsed = seconds_since(start);
  for (const int sock : socks)
  {
    close(sock);
  }
  close(poller);
  usleep(50000); // the server's threads end
  return static_cast<double>(echoes) / elapsed;
}

void echo_rows()
{
  int ours = 0;
  tcp_server_st* server = start_server(ours, 1000, echo_callback, nullptr);
  int raw = 0;
  std::thread(serve_raw, listen_raw(raw)).detach();
  int asio = 0;
  std::thread(serve_asio, listen_raw(asio)).detach();
  for (const int connections : {16, 64})
  {
    std::vector<double> rates[3];
    for (int round = 0; round < kRounds; ++round)
    {
      rates[0].push_back(echoes_per_second(ours, connections));
      rates[1].push_back(echoes_per_second(raw, connections));
      rates[2].push_back(echoes_per_second(asio, connections));
    }
    const double our = percentile(rates[0], 0.5);
    const char* peers[3] = {"", "raw blocking thread per connection", "Boost.Asio, epoll, one thread"};
    for (int peer = 1; peer < 3; ++peer)
    {
      const double their = percentile(rates[peer], 0.5);
      fprintf(table(), "| echo of 64 bytes, %d connections | %s | %.2f | %.0f/s, %.0f/s |\n", connections,
              peers[peer], median_ratio(rates[0], rates[peer]), our, their);
    }
  }
  ServerStopListen(server);
  ServerUninit(server);
}

// ---- one-way stream ----

// What a recorder sends lies in a large frame buffer, not in one warm chunk.
constexpr size_t kArea = 16 * 1024 * 1024;
char area[kArea];

struct AreaWalk
{
  size_t at = 0;
  const char* next()
  {
    at = (at + kChunk) % kArea;
    return area + at;
  }
};

// Keeps one chunk queued while the round lasts.
int stream_callback(SERVICE_STATE_E state, const char* /*data*/, int len, tcp_server_st* /*server*/,
                    tcp_client_st* client, void* arg)
{
  if ((state == SERVICE_STATE_START || state == SERVICE_STATE_SEND) &&
      ClientGetSendBufSize(client) < static_cast<int>(kChunk))
  {
    ClientSendData(client, static_cast<AreaWalk*>(arg)->next(), kChunk, 1);
  }
  return len;
}

void stream_raw(int listenSock)
{
  for (;;)
  {
    const int sock = accept(listenSock, nullptr, nullptr);
    AreaWalk walk;
    while (write_all(sock, walk.next(), kChunk))
    {
    }
    close(sock);
  }
}

double bytes_per_second(int port)
{
  static char data[256 * 1024];
  const int sock = connect_raw(port);
  // Woken for a whole buffer: otherwise the rate is that of the machine's wake-ups, not of the sender.
  const int low = sizeof data;
  setsockopt(sock, SOL_SOCKET, SO_RCVLOWAT, &low, sizeof low);
  double bytes = 0;
  const auto start = Clock::now();
  while (seconds_since(start) < kRoundSeconds)
  {
    const ssize_t got = read(sock, data, sizeof data);
    bytes += got > 0 ? static_cast<double>(got) : 0;
  }
  const double elapsed = seconds_since(start);
  close(sock);
  usleep(50000);
  return bytes / elapsed;
}

void stream_row()
{
  int ours = 0;
  memset(area, 1, sizeof area);
  static AreaWalk walk;
  tcp_server_st* server = start_server(ours, 1000, stream_callback, &walk);
  int raw = 0;
  std::thread(stream_raw, listen_raw(raw)).detach();
  std::vector<double> rates[2];
  for (int round = 0; round < kRounds; ++round)
  {
    rates[0].push_back(bytes_per_second(ours));
    rates[1].push_back(bytes_per_second(raw));
  }
  const double our = percentile(rates[0], 0.5);
  const double their = percentile(rates[1], 0.5);
  fprintf(table(),
          "| one-way stream of 64 KiB sends out of 16 MiB | raw write loop | %.2f | %.0f MB/s, %.0f MB/s |\n",
          median_ratio(rates[0], rates[1]), our / 1e6, their / 1e6);
  ServerStopListen(server);
  ServerUninit(server);
}

} // namespace

int main()
{
  table();
  echo_rows();
  stream_row();
  fflush(table());
  _exit(0); // the peers' threads never end
}
