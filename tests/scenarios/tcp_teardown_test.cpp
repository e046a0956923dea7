#include <devcomm/tcp_service.h>

#include "support/measure.h"
#include "support/signal_storm.h"
#include "support/tcp_peer.h"

#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <vector>

namespace
{

/// Another limit of descriptors for a while.
struct DescriptorLimit
{
  explicit DescriptorLimit(rlim_t limit)
  {
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit changed{limit, before.rlim_max};
    isSet = setrlimit(RLIMIT_NOFILE, &changed) == 0;
  }
  ~DescriptorLimit()
  {
    setrlimit(RLIMIT_NOFILE, &before);
  }
  rlimit before{};
  bool isSet;
};

} // namespace

TEST(TcpTeardown, APeerThatVanishesMidSendRaisesNoSignal)
{
  signal(SIGPIPE, SIG_DFL); // would end the process
  const std::string bulk(8 << 20, 'x');
  Events events(
      [&](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st* client)
      {
        return state == SERVICE_STATE_START
                   ? ClientSendData(client, bulk.data(), static_cast<int>(bulk.size()), 0)
                   : 0;
      });
  Listening service(events);
  for (int i = 1; i <= 4; ++i)
  {
    Peer peer;
    ASSERT_TRUE(peer.Connect(service.port));
    EXPECT_EQ(peer.Receive(1000).size(), 1000U);
    i % 2 == 0 ? peer.Reset() : peer.Close();
    EXPECT_TRUE(events.Wait('C', i));
  }
  EXPECT_TRUE(eventually([&] { return ServerGetConnCount(service.server) == 0; }));
  Standalone local(events); // a Unix-domain stream reports a vanished peer by EPIPE alone
  local.peer.Receive(1000);
  local.peer.Close();
  EXPECT_TRUE(events.Wait('C', 5));
}

TEST(TcpTeardown, AConnectionOutlivesItsFreedServer)
{
  std::atomic<bool> isFreed{false};
  std::atomic<bool> sawServer{true};
  Events events(
      [&](SERVICE_STATE_E state, const std::string& data, tcp_server_st* server, tcp_client_st*)
      {
        if (state == SERVICE_STATE_RECV)
          eventually([&] { return isFreed.load(); }); // as one that outlives the wait of ServerStopListen
        if (state == SERVICE_STATE_CLOSE)
          sawServer = server != nullptr;
        return static_cast<int>(data.size());
      });
  tcp_server_st* server = ServerInit();
  const int port = free_port();
  ASSERT_EQ(ServerStartListen(server, port, 0, 9, Events::Callback, &events), 0);
  Peer busy;
  Peer idle;
  ASSERT_TRUE(busy.Connect(port) && busy.Send("x") && idle.Connect(port) && events.Wait('S', 2));
  const int listenSock = server->listenSock;
  ServerUninit(server);
  close(listenSock);
  isFreed = true;
  EXPECT_TRUE(events.Wait('R'));
  busy.Close();
  idle.Close();
  EXPECT_TRUE(events.Wait('C', 2)); // and nothing leaks or touches the server: the sanitizers watch
  EXPECT_FALSE(sawServer);
}

TEST(TcpTeardown, AConnectionThatEndsAtOnceNeverStaysListed)
{
  Events events([](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st*)
                { return state == SERVICE_STATE_START ? -1 : 0; });
  Listening service(events);
  for (int i = 1; i <= 100; ++i)
  {
    Peer peer;
    ASSERT_TRUE(peer.Connect(service.port) && peer.AtEnd());
  }
  EXPECT_TRUE(eventually([&] { return ServerGetConnCount(service.server) == 0; }));
  EXPECT_EQ(events.Count('C'), 100);
}

TEST(TcpTeardown, CallbacksMayAskForTheEndOfTheirOwnConnection)
{
  Events events(
      [](SERVICE_STATE_E state, const std::string& data, tcp_server_st*, tcp_client_st* client) {
        return state == SERVICE_STATE_RECV ? data[0] == 's' ? ClientStop(client) : ClientUninit(client) : 0;
      });
  {
    Standalone stopped(events);
    stopped.peer.Send("s");
    EXPECT_TRUE(stopped.peer.AtEnd());
  }
  SocketPair pair;
  Peer peer(pair.ends[1]);
  EXPECT_EQ(ClientStart(ClientInit(), nullptr, pair.ends[0], 5000, Events::Callback, &events), 0);
  peer.Send("u");
  EXPECT_TRUE(peer.AtEnd()); // freed by its thread: the leak checker watches
  Listening service(events);
  Peer accepted;
  EXPECT_TRUE(accepted.Connect(service.port) && accepted.Send("u") && accepted.AtEnd());
  EXPECT_TRUE(eventually([&] { return ServerGetConnCount(service.server) == 0; }));
}

TEST(TcpTeardown, WithoutDescriptorsPeersWaitAndTheProcessRests)
{
  Events events(echo);
  Listening service(events);
  Peer peer;
  const DescriptorLimit roomy(4096);
  {
    const DescriptorLimit none(static_cast<rlim_t>(lowest_free_fd()));
    ASSERT_TRUE(none.isSet && peer.Connect(service.port));
    const double before = cpu_seconds();
    usleep(300000);
    EXPECT_LT(cpu_seconds() - before, 0.1);
    EXPECT_EQ(ServerGetConnCount(service.server), 0);
  }
  peer.Send("late");
  EXPECT_EQ(peer.Receive(4), "late");
}

TEST(TcpTeardown, ServesBeyondDescriptor1023)
{
  const DescriptorLimit limit(2048);
  if (!limit.isSet)
    GTEST_SKIP() << "needs a hard limit of 2048 descriptors";
  std::vector<std::unique_ptr<Peer>> fillers;
  while (lowest_free_fd() < 1100)
    fillers.push_back(std::make_unique<Peer>());
  Events events(echo);
  Listening service(events);
  EXPECT_GT(service.server->listenSock, 1023);
  Peer peer;
  ASSERT_TRUE(peer.Connect(service.port) && peer.Send("high"));
  EXPECT_EQ(peer.Receive(4), "high");
}

TEST(TcpTeardown, SignalsEveryMillisecondLoseAndEndNothing)
{
  std::unique_ptr<SignalStorm> storm; // on the connection's thread
  Events events(
      [&](SERVICE_STATE_E state, const std::string& data, tcp_server_st*, tcp_client_st* client)
      {
        if (state == SERVICE_STATE_START)
          storm = std::make_unique<SignalStorm>();
        if (state == SERVICE_STATE_CLOSE)
          storm.reset();
        return echo(state, data, nullptr, client);
      });
  Standalone link(events);
  std::string sent;
  std::string received;
  for (int i = 0; i < 200; ++i)
  {
    const std::string piece(static_cast<size_t>(1 + i * 37 % 5000), static_cast<char>('a' + i % 26));
    sent += piece;
    link.peer.Send(piece);
    received += link.peer.Receive(piece.size());
    usleep(500);
  }
  EXPECT_TRUE(received == sent);
  EXPECT_GT(SignalStorm::count(), 50);
  EXPECT_EQ(events.Count('C'), 0);
  link.peer.Close();
  EXPECT_TRUE(events.Wait('C'));
}

TEST(TcpTeardown, APeerThatNeverReadsDelaysNobody)
{
  Events events(echo);
  Listening service(events);
  Peer stuck;
  Peer lively;
  ASSERT_TRUE(stuck.Connect(service.port) && events.Wait('S') && lively.Connect(service.port) &&
              events.Wait('S', 2));
  const std::string bulk(16 << 20, 'x');
  pthread_mutex_lock(&service.server->clientsLock);
  tcp_client_st* client = service.server->clients->front();
  pthread_mutex_unlock(&service.server->clientsLock);
  ClientSendData(client, bulk.data(), static_cast<int>(bulk.size()), 0);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i)
  {
    lively.Send("ping");
    ASSERT_EQ(lively.Receive(4), "ping");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
  EXPECT_GT(ClientGetSendBufSize(client), 0);
}
