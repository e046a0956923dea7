// How soon bytes queued by another thread leave a sleeping connection, and what idle connections cost.

#include "comm_server_client/bench_net.h"

namespace
{

constexpr int kWakes = 1000;
constexpr int kIdle = 200;

int ignore(SERVICE_STATE_E /*state*/, const char* /*data*/, int len, tcp_server_st* /*server*/,
           tcp_client_st* /*client*/, void* /*arg*/)
{
  return len;
}

int connect_listed(tcp_server_st* server, int port)
{
  const int before = ServerGetConnCount(server);
  const int sock = connect_raw(port);
  while (ServerGetConnCount(server) <= before)
  {
    usleep(100);
  }
  return sock;
}

void wake_row(tcp_server_st* server, int port)
{
  const int sock = connect_listed(server, port);
  std::vector<double> delays;
  for (int i = 0; i < kWakes; ++i)
  {
    usleep(static_cast<useconds_t>(2000 + i * 7919 % 5000)); // asleep, anywhere within a pass
    const auto queued = Clock::now();
    ServerSendAll(server, "x", 1);
    char byte;
    if (recv(sock, &byte, 1, 0) != 1)
    {
      fail("recv");
    }
    delays.push_back(seconds_since(queued) * 1e3);
  }
  const double p50 = percentile(delays, 0.5);
  fprintf(table(),
          "| send from another thread to arrival, idle connection | 20 ms pass (10 ms on average) | %.0f | "
          "p50 %.3f ms, p99 %.3f ms |\n",
          10.0 / p50, p50, percentile(delays, 0.99));
  close(sock);
  while (ServerGetConnCount(server) > 0)
  {
    usleep(1000);
  }
}

void idle_row(tcp_server_st* server, int port)
{
  const long before = status_value("VmRSS");
  std::vector<int> socks;
  for (int i = 0; i < kIdle; ++i)
  {
    socks.push_back(connect_listed(server, port));
  }
  sleep(1);
  const double cpu = cpu_seconds();
  const auto start = Clock::now();
  sleep(5);
  const double share = (cpu_seconds() - cpu) / seconds_since(start);
  fprintf(table(), "| %d idle connections | - | - | %.1f KiB RSS a connection, %.4f CPU seconds a second |\n",
          kIdle, static_cast<double>(status_value("VmRSS") - before) / kIdle, share);
  for (const int sock : socks)
  {
    close(sock);
  }
}

} // namespace

int main()
{
  table();
  int port = 0;
  tcp_server_st* server = start_server(port, 1000, ignore, nullptr);
  wake_row(server, port);
  idle_row(server, port);
  ServerStopListen(server);
  ServerUninit(server);
  fflush(table());
  return 0;
}
