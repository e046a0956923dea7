#include "comm_server_client/socket_internal.h"
#include "comm_server_client/tcp_connection.h"

#include <devcomm/socket.h>

#include "internal/assert_report.h"
#include "internal/relaxed.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>

#include <unistd.h>

namespace
{

constexpr int kLeastTimeoutMs = 1000;
constexpr int kDefaultTimeoutMs = 60000;
constexpr int kAcceptWaitMs = 1000;
constexpr int kAcceptRetryMs = 50;
constexpr int kQuitPasses = 101; // the last one only looks
constexpr int kQuitPassMs = 100;

bool is_running(const tcp_server_st* server)
{
  return relaxed_load(server->listenSock) >= 1 && ThreadGetStatus(server->thread) != 0;
}

// The whole time, signals notwithstanding.
void sleep_ms(int ms)
{
  timespec left = {ms / 1000, ms % 1000 * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR)
  {
  }
}

std::list<tcp_client_st*>* make_list()
{
  return new (std::nothrow) std::list<tcp_client_st*>();
}

// Needs clientsLock.
bool list_client(tcp_server_st* server, tcp_client_st* client)
{
  try
  {
    server->clients->push_back(client);
    return true;
  }
  catch (const std::bad_alloc&)
  {
    return false;
  }
}

// Needs clientsLock: a connection that ends at once waits for it, and finds itself in the list.
void start_client(tcp_server_st* server, int sock)
{
  tcp_client_st* client = ClientInit();
  if (client == nullptr)
  {
    close(sock);
    return;
  }
  const bool isListed = list_client(server, client);
  if (isListed && connection_start(connection_of(client), server, sock, server->timeoutMs, server->callback,
                                   server->arg) == 0)
  {
    return; // its thread owns it now
  }
  if (isListed)
  {
    server->clients->pop_back();
  }
  connection_free(connection_of(client));
  close(sock);
}

void take_client(tcp_server_st* server, int sock)
{
  char info[64];
  printf("accept conn, sock=%d, info=%s\n", sock, sock_info_text(sock, info, sizeof info));
  pthread_mutex_lock(&server->clientsLock);
  const bool hasRoom = server->clients->size() < static_cast<size_t>(relaxed_load(server->maxConn));
  if (hasRoom)
  {
    start_client(server, sock);
  }
  pthread_mutex_unlock(&server->clientsLock);
  if (!hasRoom)
  {
    printf("refuse conn : sock=%d, info=%s\n", sock, info);
    close(sock);
  }
}

// Out of descriptors or memory the listening socket stays ready: pause rather than spin, and serve the peer later.
bool needs_pause(int error)
{
  return error != EAGAIN && error != EINTR && error != ECONNABORTED;
}

void accept_loop(CommonThread_st* thread, void* arg)
{
  auto* server = static_cast<tcp_server_st*>(arg);
  while (ThreadGetStatus(thread) != 0)
  {
    const int ready = select_read(server->listenSock, kAcceptWaitMs);
    if (ready == 0)
    {
      continue;
    }
    const int sock = ready > 0 ? tcp_accept(server->listenSock, nullptr) : -1;
    if (sock >= 1)
    {
      take_client(server, sock);
    }
    else if (needs_pause(errno))
    {
      sleep_ms(kAcceptRetryMs);
    }
  }
  printf("thread tcp server thread exit, port=%d\n", server->port);
}

void close_listener(tcp_server_st* server)
{
  const int sock = server->listenSock;
  relaxed_store(server->listenSock, -1);
  if (sock >= 1)
  {
    close(sock);
  }
}

void ask_clients_to_end(tcp_server_st* server)
{
  pthread_mutex_lock(&server->clientsLock);
  for (tcp_client_st* client : *server->clients)
  {
    ClientPrintInfo(client);
    ThreadSetStatus(client->thread, 0);
  }
  pthread_mutex_unlock(&server->clientsLock);
}

void wait_for_clients(tcp_server_st* server)
{
  for (int pass = 1;; ++pass)
  {
    const int count = ServerGetConnCount(server);
    if (count < 1 || pass >= kQuitPasses)
    {
      return;
    }
    printf("server waiting(%d) for client quit, clientNum=%d\n", pass, count);
    sleep_ms(kQuitPassMs);
  }
}

void free_server(Server* server)
{
  ThreadUninit(server->thread);
  delete server->clients;
  pthread_mutex_destroy(&server->clientsLock);
  if (server->link != nullptr)
  {
    link_drop(server->link);
  }
  delete server;
}

int refuse(const char* message)
{
  printf("%s\n", message);
  return -1;
}

} // namespace

tcp_server_st* ServerInit()
{
  auto* server = new (std::nothrow) Server();
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return nullptr;
  }
  pthread_mutex_init(&server->clientsLock, nullptr);
  server->listenSock = -1;
  server->thread = ThreadInit();
  server->clients = make_list();
  server->link = link_create(server);
  if (server->thread == nullptr || server->clients == nullptr || server->link == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    free_server(server);
    return nullptr;
  }
  return server;
}

int ServerStartListen(tcp_server_st* server, int port, int timeoutMs, int maxConn, TcpCallback_t callback,
                      void* arg)
{
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return -1;
  }
  if (is_running(server))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return refuse("err, server already start");
  }
  if (callback == nullptr || port <= 0)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return refuse("err, invalid port or cbfunc");
  }
  const int sock = tcp_listen(port, nullptr);
  if (sock < 1)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return refuse("err, create tcp listen sock");
  }
  // A leftover accept thread, asked to end but not waited for, still reads the record and its socket.
  ThreadStop(server->thread);
  close_listener(server);
  relaxed_store(server->listenSock, sock);
  server->port = port;
  server->callback = callback;
  server->arg = arg;
  server->timeoutMs = timeoutMs <= kLeastTimeoutMs ? kDefaultTimeoutMs : timeoutMs;
  relaxed_store(server->maxConn, maxConn < 1 ? 1 : maxConn);
  char name[64];
  snprintf(name, sizeof name, "thread tcp server, port=%d", port);
  // A failure of pthread_create is positive and passes: callers see it in ServerGetStatus.
  if (ThreadStart(server->thread, accept_loop, server, name) < 0)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    close_listener(server);
    return refuse("err, start thread err");
  }
  return 0;
}

int ServerStopListen(tcp_server_st* server)
{
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return -1;
  }
  if (relaxed_load(server->listenSock) < 1 && ThreadGetStatus(server->thread) == 0)
  {
    return -1;
  }
  ThreadStop(server->thread);
  ask_clients_to_end(server);
  wait_for_clients(server);
  close_listener(server);
  return 0;
}

int ServerUninit(tcp_server_st* server)
{
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  auto* own = static_cast<Server*>(server);
  ThreadStop(own->thread);
  link_detach_server(own->link);
  free_server(own);
  return 0;
}

int ServerGetStatus(tcp_server_st* server)
{
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  return is_running(server) ? 1 : 0;
}

int ServerGetConnCount(tcp_server_st* server)
{
  if (server == nullptr)
  {
    return 0;
  }
  pthread_mutex_lock(&server->clientsLock);
  const auto count = static_cast<int>(server->clients->size());
  pthread_mutex_unlock(&server->clientsLock);
  return count;
}

int ServerSendAll(tcp_server_st* server, const char* data, int len)
{
  if (server == nullptr)
  {
    return 0;
  }
  pthread_mutex_lock(&server->clientsLock);
  for (tcp_client_st* client : *server->clients)
  {
    ClientSendData(client, data, len, 0);
  }
  pthread_mutex_unlock(&server->clientsLock);
  return 0;
}

int ServerSendClient(tcp_server_st* server, int type, const char* data, int len)
{
  if (server == nullptr)
  {
    return 0;
  }
  pthread_mutex_lock(&server->clientsLock);
  for (tcp_client_st* client : *server->clients)
  {
    if (GetClientType(client) == type)
    {
      ClientSendData(client, data, len, 0);
    }
  }
  pthread_mutex_unlock(&server->clientsLock);
  return 0;
}

int ServerPrintInfo(tcp_server_st* server)
{
  if (server == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  printf("thread tcp server, listen port=%d, sock=%d\n", server->port, relaxed_load(server->listenSock));
  printf("    alive conns info:\n");
  pthread_mutex_lock(&server->clientsLock);
  for (tcp_client_st* client : *server->clients)
  {
    ClientPrintInfo(client);
  }
  pthread_mutex_unlock(&server->clientsLock);
  return 0;
}
