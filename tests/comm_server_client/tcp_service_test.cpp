#include <devcomm/tcp_service.h>

#include "support/measure.h"
#include "support/tcp_peer.h"

#include <fcntl.h>

#include <tuple>
#include <vector>

TEST(TcpConnection, ReportsEveryStepInItsOrder)
{
  Events events(echo);
  Standalone link(events);
  EXPECT_TRUE(events.Wait('I'));
  link.peer.Send("ping");
  EXPECT_EQ(link.peer.Receive(4), "ping");
  EXPECT_TRUE(events.Wait('W'));
  EXPECT_EQ(ClientGetStatus(link.client), 1);
  link.peer.Close();
  EXPECT_TRUE(events.Wait('C'));
  EXPECT_TRUE(eventually([&] { return ClientGetStatus(link.client) == 0; }));
  EXPECT_EQ(events.Steps(), "SIRIWIC");
}

TEST(TcpConnection, KeepsWhatTheCallbackDoesNotConsume)
{
  std::vector<std::string> seen;
  Events events(
      [&](SERVICE_STATE_E state, const std::string& data, tcp_server_st*, tcp_client_st* client)
      {
        if (state != SERVICE_STATE_RECV)
          return 0;
        EXPECT_EQ(ClientGetRecvBufSize(client), static_cast<int>(data.size()));
        seen.push_back(data);
        return seen.size() == 1 ? 0 : seen.size() == 2 ? 3 : 1000;
      });
  Standalone link(events);
  int reads = 0;
  for (const char* part : {"ab", "cd", "ef", "gh"})
  {
    link.peer.Send(part);
    ASSERT_TRUE(events.Wait('R', ++reads));
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"ab", "abcd", "def", "gh"}));
  EXPECT_TRUE(eventually([&] { return ClientGetRecvBufSize(link.client) == 0; }));
}

TEST(TcpConnection, HeldDataKeepsIdleBackUntilItIsOut)
{
  const std::string bulk(4 << 20, 'x');
  Events events(
      [&](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st* client)
      { return state == SERVICE_STATE_START ? ClientSendData(client, bulk.data(), 4 << 20, 1) : 0; });
  Standalone link(events);
  ASSERT_TRUE(events.Wait('W'));
  usleep(100000); // several passes with the peer asleep
  EXPECT_EQ(events.Count('I'), 0);
  EXPECT_GT(ClientGetSendBufSize(link.client), 0);
  EXPECT_EQ(link.peer.Receive(bulk.size()), bulk);
  EXPECT_TRUE(events.Wait('I'));
  const std::string log = events.Log();
  EXPECT_GT(log.find('I'), log.rfind('W'));
  // Nothing to queue, but the flag counts; and a list queues its good pieces in order.
  ClientSendData(link.client, nullptr, 5, 7);
  EXPECT_EQ(link.client->holdFlag, 7);
  char a[] = "one";
  char b[] = "two";
  char* bufs[] = {a, nullptr, b, b};
  int lens[] = {3, 5, 0, 3};
  ClientSendList(link.client, bufs, lens, 4, 0);
  EXPECT_EQ(link.peer.Receive(6), "onetwo");
}

TEST(TcpConnection, EndsWithOneCloseForEveryReason)
{
  const std::tuple<SERVICE_STATE_E, const char*, int> refusals[] = {
      {SERVICE_STATE_START, "SC", 0},
      {SERVICE_STATE_IDLE, "SIC", 0},
      {SERVICE_STATE_RECV, "SIRC", 1}, // only the results given to RECV and SEND are reported
      {SERVICE_STATE_SEND, "SIRIWC", 1}};
  for (const auto& [refused, steps, lines] : refusals)
  {
    Events events([&refused = refused](SERVICE_STATE_E state, const std::string& data, tcp_server_st*,
                                       tcp_client_st* client)
                  { return state == refused ? -1 : echo(state, data, nullptr, client); });
    CaptureStderr();
    Standalone link(events);
    link.peer.Send("x");
    EXPECT_TRUE(events.Wait('C'));
    EXPECT_TRUE(link.peer.Receive(2).size() < 2 && link.peer.AtEnd());
    EXPECT_EQ(occurrences(GetCapturedStderr(), "WARNING, assert failed (source/comm_server_client/"), lines);
    EXPECT_EQ(events.Steps(), steps);
  }

  Events silent([](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st* client)
                { return state == SERVICE_STATE_START ? (ClientSetTimeout(client, 50), 0) : 0; });
  Standalone timedOut(silent);
  EXPECT_TRUE(timedOut.peer.AtEnd());
  Events stopped;
  Standalone owned(stopped);
  ClientStop(owned.client);
  EXPECT_TRUE(owned.peer.AtEnd());
  EXPECT_EQ(silent.Steps(), "SIC");
  EXPECT_EQ(stopped.Count('C'), 1);
  EXPECT_EQ(owned.client->sock, -1);

  // A peer that drops the connection, unread bytes and all, while a callback takes its time.
  Standalone dropped;
  Events late(
      [&](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st* client)
      {
        if (state == SERVICE_STATE_RECV)
        {
          dropped.peer.Close();
          usleep(5000);
        }
        return state == SERVICE_STATE_START ? ClientSendData(client, "unread", 6, 0) : 0;
      });
  EXPECT_EQ(dropped.Start(late), 0);
  EXPECT_TRUE(late.Wait('W'));
  dropped.peer.Send("x");
  EXPECT_TRUE(late.Wait('C'));
  ClientStop(dropped.client);
  EXPECT_EQ(late.Steps(), "SIWIRC");

  Standalone dumb;
  EXPECT_EQ(ClientStart(dumb.client, nullptr, dumb.pair.ends[0], 1000, nullptr, nullptr), 0);
  EXPECT_TRUE(dumb.peer.AtEnd());
}

TEST(TcpConnection, DataOfAnotherThreadLeavesAtOnceAndMakesNoPass)
{
  Events events;
  Standalone link(events);
  EXPECT_TRUE(events.Wait('I'));
  const auto begin = std::chrono::steady_clock::now();
  std::vector<double> delays;
  constexpr int kTrials = 30;
  for (int i = 0; i < kTrials; ++i)
  {
    usleep(5000 + 700 * static_cast<useconds_t>(i)); // anywhere within a pass
    delays.push_back(seconds_of(
        [&]
        {
          ClientSendData(link.client, "x", 1, 0);
          EXPECT_EQ(link.peer.Receive(1), "x");
        }));
  }
  std::sort(delays.begin(), delays.end());
  EXPECT_LT(delays[kTrials / 2], 0.005); // passes alone would give 0.01
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(events.Count('I'), elapsed.count() / 0.02 + kTrials + 2);
}

TEST(TcpConnection, StartsAnewWhileTheOldThreadStillEnds)
{
  Events slow([](SERVICE_STATE_E state, const std::string&, tcp_server_st*, tcp_client_st*)
              { return state == SERVICE_STATE_CLOSE ? usleep(50000) : 0; });
  Events events(echo);
  Standalone link(slow, 999);
  EXPECT_EQ(link.client->timeoutMs, 30000);
  EXPECT_EQ(link.Start(slow), -1); // runs already
  SocketPair fresh;
  Peer peer(fresh.ends[1]);
  int marker = 0;
  EXPECT_EQ(ClientSetPrivateData(link.client, 15, &marker), 0);
  EXPECT_EQ(ClientGetPrivateData(link.client, 15), &marker);
  ClientSetType(link.client, 3);
  ThreadSetStatus(link.client->thread, 0);
  EXPECT_EQ(ClientStart(link.client, nullptr, fresh.ends[0], 1000, Events::Callback, &events), 0);
  EXPECT_TRUE(link.peer.AtEnd());
  peer.Send("again");
  EXPECT_EQ(peer.Receive(5), "again");
  EXPECT_EQ(slow.Count('C'), 1);
  EXPECT_EQ(link.client->timeoutMs, 1000);
  EXPECT_EQ(ClientGetPrivateData(link.client, 15), nullptr);
  EXPECT_EQ(GetClientType(link.client), 3);
}

TEST(TcpServer, RefusesBeyondItsLimitAndStopsInOrder)
{
  CaptureStdout();
  int port = 0;
  {
    Events events(echo);
    Listening service(events, 0, 1000);
    port = service.port;
    ASSERT_EQ(service.started, 0);
    EXPECT_EQ(service.server->timeoutMs, 60000);
    Peer first;
    Peer second;
    EXPECT_TRUE(first.Connect(port) && events.Wait('S'));
    EXPECT_TRUE(second.Connect(port) && second.AtEnd());
    EXPECT_EQ(ServerGetConnCount(service.server), 1);
    EXPECT_EQ(service.server->clients->front()->timeoutMs, 60000);
    EXPECT_EQ(ServerGetStatus(service.server), 1);
    ServerPrintInfo(service.server);
    EXPECT_EQ(ServerStopListen(service.server), 0);
    EXPECT_TRUE(first.AtEnd());
    EXPECT_EQ(ServerGetConnCount(service.server), 0);
    EXPECT_EQ(events.Count('S'), 1);
    EXPECT_EQ(events.Count('C'), 1);
    EXPECT_EQ(ServerStopListen(service.server), -1);
    EXPECT_EQ(ServerStartListen(service.server, port, 1001, 1, Events::Callback, &events), 0);
    EXPECT_EQ(service.server->timeoutMs, 1001);
  }
  const std::string out = GetCapturedStdout();
  size_t at = 0;
  const std::string number = std::to_string(port);
  for (const std::string& line :
       std::vector<std::string>{"accept conn, sock=", ", info=[", "accept conn, sock=", "refuse conn : sock=",
                                "thread tcp server, listen port=" + number + ", sock=",
                                "    alive conns info:\n    ==client sock:[",
                                "thread tcp server thread exit, port=" + number + "\n",
                                "server waiting(1) for client quit, clientNum=1\n"})
  {
    at = out.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << "not in order in\n" << out;
  }
}

TEST(TcpServer, SendsToAllOrToOneType)
{
  Events events(
      [](SERVICE_STATE_E state, const std::string& data, tcp_server_st* server, tcp_client_st* client)
      {
        if (state == SERVICE_STATE_RECV)
        {
          ClientSetType(client, data[0] - '0');
          ServerSendClient(server, 9, "nobody", 6);
        }
        return static_cast<int>(data.size());
      });
  Listening service(events);
  Peer peers[3];
  const char* types[3] = {"1", "2", "1"};
  for (int i = 0; i < 3; ++i)
  {
    ASSERT_TRUE(peers[i].Connect(service.port) && events.Wait('S', i + 1)); // one after the other: listed so
    peers[i].Send(types[i]);
  }
  EXPECT_TRUE(events.Wait('R', 3));
  ServerSendClient(service.server, 1, "one", 3);
  ServerSendAll(service.server, "all", 3);
  EXPECT_EQ(peers[0].Receive(6) + peers[1].Receive(3) + peers[2].Receive(6), "oneallalloneall");
}

TEST(TcpServer, RefusesToStartWithAReasonAndReportsNulls)
{
  Events events;
  Listening service(events);
  tcp_server_st* other = ServerInit();
  EXPECT_EQ(ServerStopListen(other), -1);
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(ServerStartListen(service.server, free_port(), 0, 1, Events::Callback, nullptr), -1);
  EXPECT_EQ(ServerStartListen(other, 0, 0, 1, Events::Callback, nullptr), -1);
  EXPECT_EQ(ServerStartListen(other, service.port, 0, 1, nullptr, nullptr), -1);
  EXPECT_EQ(ServerStartListen(other, service.port, 0, 1, Events::Callback, nullptr), -1);
  const std::string reports = GetCapturedStderr();
  EXPECT_EQ(occurrences(reports, "WARNING, assert failed (source/comm_server_client/tcp_server.cpp:"), 4);
  EXPECT_NE(reports.find("errno : " + std::to_string(EADDRINUSE)), std::string::npos);
  EXPECT_EQ(GetCapturedStdout(), "err, server already start\nerr, invalid port or cbfunc\n"
                                 "err, invalid port or cbfunc\nerr, create tcp listen sock\n");
  EXPECT_EQ(ServerUninit(other), 0);

  CaptureStderr();
  EXPECT_EQ(ServerUninit(nullptr) + ServerGetStatus(nullptr) + ServerPrintInfo(nullptr), 0);
  EXPECT_EQ(ServerStopListen(nullptr) + ClientStart(nullptr, nullptr, 1, 1, nullptr, nullptr), -2);
  EXPECT_EQ(ClientStop(nullptr) + ClientUninit(nullptr) + ClientSendData(nullptr, "x", 1, 0), 0);
  tcp_client_st* client = ClientInit();
  for (const int index : {-1, 16})
  {
    EXPECT_EQ(ClientSetPrivateData(client, index, client), 0);
    EXPECT_EQ(ClientGetPrivateData(client, index), nullptr);
  }
  EXPECT_EQ(occurrences(GetCapturedStderr(), "ERROR, assert failed (source/comm_server_client/"), 12);
  ClientUninit(client);
  CaptureStderr();
  ClientSetType(nullptr, 1);
  EXPECT_EQ(ServerGetConnCount(nullptr) + ServerSendAll(nullptr, "x", 1) +
                ServerSendClient(nullptr, 0, "x", 1) + ClientPrintInfo(nullptr) + GetClientType(nullptr),
            0);
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST(TcpClientInfo, PrintsItsFieldsAndClosesItsSocket)
{
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  {
    nw::CClient client(sock);
    client.lastSendTime -= 3500;
    client.recvCount[0] = 1;
    client.recvCount[1] = 2;
    client.sendCount[1] = 4;
    CaptureStdout();
    client.PrintInfo();
    char head[64];
    snprintf(head, sizeof head, "    client=%p, info=\n", static_cast<void*>(&client));
    EXPECT_EQ(GetCapturedStdout(), std::string(head) + "    quit flag=0, last recv/send=0/3 s\n"
                                                       "    time=0, recv=2/1, send=4/0\n");
  }
  EXPECT_EQ(fcntl(sock, F_GETFD), -1);
}
