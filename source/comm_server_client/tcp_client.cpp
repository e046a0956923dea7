#include "comm_server_client/client_parts.h"
#include "comm_server_client/socket_internal.h"
#include "comm_server_client/tcp_connection.h"

#include <devcomm/socket.h>
#include <devcomm/time_process.h>

#include "internal/assert_report.h"
#include "internal/relaxed.h"

#include <cstdio>
#include <cstring>
#include <new>

#include <sys/eventfd.h>
#include <unistd.h>

namespace
{

constexpr int kSlots = 16;
constexpr int kLeastTimeoutMs = 1000;
constexpr int kDefaultTimeoutMs = 30000;

bool is_running(const tcp_client_st* client)
{
  return relaxed_load(client->sock) >= 1 && ThreadGetStatus(client->thread) != 0;
}

// Needs sendLock. A thread that waits without looking for room to write has to look now.
void wake_sleeper(Connection* connection)
{
  if (connection->wakeFd >= 0 && relaxed_load(connection->asleep) != 0)
  {
    relaxed_store(connection->asleep, 0);
    eventfd_write(connection->wakeFd, 1);
  }
}

// Needs sendLock.
void append(Connection* connection, const char* data, int len)
{
  if (data != nullptr && len > 0)
  {
    connection->sendBuf->Add(data, static_cast<unsigned>(len));
  }
}

// Needs sendLock, which it gives back.
void finish_queueing(Connection* connection, int hold)
{
  relaxed_store(connection->holdFlag, hold);
  if (connection->sendBuf->Length() > 0)
  {
    wake_sleeper(connection);
  }
  pthread_mutex_unlock(&connection->sendLock);
}

void set_server(Connection* connection, tcp_server_st* server)
{
  if (connection->link != nullptr)
  {
    link_drop(connection->link);
  }
  connection->link = server == nullptr ? nullptr : static_cast<Server*>(server)->link;
  if (connection->link != nullptr)
  {
    link_hold(connection->link);
  }
  connection->server = server;
}

void empty_buffers(Connection* connection)
{
  connection->recvBuf->Drain(static_cast<unsigned>(connection->recvBuf->Length()));
  relaxed_store(connection->recvLength, 0);
  pthread_mutex_lock(&connection->sendLock);
  connection->sendBuf->Drain(static_cast<unsigned>(connection->sendBuf->Length()));
  if (connection->wakeFd < 0)
  {
    connection->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  }
  pthread_mutex_unlock(&connection->sendLock);
}

bool is_slot(int index)
{
  if (index >= 0 && index < kSlots)
  {
    return true;
  }
  DEVCOMM_ASSERT_REPORT(Error);
  return false;
}

} // namespace

tcp_client_st* ClientInit()
{
  auto* connection = new (std::nothrow) Connection();
  if (connection == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return nullptr;
  }
  connection->wakeFd = -1;
  if (!make_client_parts(connection))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    connection_free(connection);
    return nullptr;
  }
  return connection;
}

void connection_free(Connection* connection)
{
  free_client_parts(connection);
  if (connection->wakeFd >= 0)
  {
    close(connection->wakeFd);
  }
  set_server(connection, nullptr);
  delete connection;
}

int connection_start(Connection* connection, tcp_server_st* server, int sock, int timeoutMs,
                     TcpCallback_t callback, void* arg)
{
  set_block_ctl(sock, 1);
  // An old thread on its way out closes its own socket, and is gone before the record changes.
  ThreadStop(connection->thread);
  set_server(connection, server);
  relaxed_store(connection->sock, sock);
  relaxed_store(connection->timeoutMs, timeoutMs < kLeastTimeoutMs ? kDefaultTimeoutMs : timeoutMs);
  connection->callback = callback;
  connection->arg = arg;
  memset(connection->privateData, 0, sizeof connection->privateData);
  connection->lastActiveMs = static_cast<int64_t>(msecdiff(0));
  empty_buffers(connection);
  char name[64];
  snprintf(name, sizeof name, "thread tcp client thread, sock=%d", sock);
  const int result = ThreadStart(connection->thread, connection_main, connection, name);
  if (result != 0)
  {
    relaxed_store(connection->sock, -1);
    set_server(connection, nullptr); // without a thread it cannot free itself
  }
  return result; // of a server-owned connection nothing may be touched any more: it may have ended already
}

int ClientStart(tcp_client_st* client, tcp_server_st* server, int sock, int timeoutMs, TcpCallback_t callback,
                void* arg)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return -1;
  }
  if (is_running(client) || connection_is_current(client))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return -1;
  }
  const int result = connection_start(connection_of(client), server, sock, timeoutMs, callback, arg);
  if (result < 0)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    printf("err, start thread err\n");
    return -1;
  }
  if (result > 0 && sock >= 1)
  {
    close(sock); // the caller is told 0, and so has given the socket away
  }
  return 0;
}

int ClientStop(tcp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  // A callback cannot wait for its own thread; a server-owned record may be freed while somebody waits.
  if (connection_is_current(client) || connection_of(client)->link != nullptr)
  {
    ThreadSetStatus(client->thread, 0);
    return 0;
  }
  ThreadStop(client->thread);
  relaxed_store(client->sock, -1);
  return 0;
}

int ClientUninit(tcp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  auto* connection = connection_of(client);
  const bool isCurrent = connection_is_current(client);
  const bool freesItself = isCurrent || connection->link != nullptr;
  ClientStop(client);
  if (isCurrent)
  {
    connection->freeAtEnd = 1;
  }
  if (!freesItself)
  {
    connection_free(connection);
  }
  return 0;
}

int ClientGetStatus(tcp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  return is_running(client) ? 1 : 0;
}

int ClientSendData(tcp_client_st* client, const char* data, int len, int hold)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  auto* connection = connection_of(client);
  pthread_mutex_lock(&connection->sendLock);
  append(connection, data, len);
  finish_queueing(connection, hold);
  return 0;
}

int ClientSendList(tcp_client_st* client, char** bufs, int* lens, int count, int hold)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  auto* connection = connection_of(client);
  pthread_mutex_lock(&connection->sendLock);
  for (int i = 0; i < count && bufs != nullptr && lens != nullptr; ++i)
  {
    append(connection, bufs[i], lens[i]);
  }
  finish_queueing(connection, hold);
  return 0;
}

int ClientGetSendBufSize(tcp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  pthread_mutex_lock(&client->sendLock);
  const auto size = static_cast<int>(client->sendBuf->Length());
  pthread_mutex_unlock(&client->sendLock);
  return size;
}

int ClientGetRecvBufSize(tcp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  if (connection_is_current(client))
  {
    return static_cast<int>(client->recvBuf->Length());
  }
  return relaxed_load(connection_of(client)->recvLength);
}

void ClientSetType(tcp_client_st* client, int type)
{
  if (client != nullptr)
  {
    relaxed_store(client->type, type);
  }
}

int GetClientType(tcp_client_st* client)
{
  return client == nullptr ? 0 : relaxed_load(client->type);
}

void ClientSetTimeout(tcp_client_st* client, int ms)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return;
  }
  relaxed_store(client->timeoutMs, ms);
}

int ClientSetPrivateData(tcp_client_st* client, int index, void* value)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  if (is_slot(index))
  {
    client->privateData[index] = value;
  }
  return 0;
}

void* ClientGetPrivateData(tcp_client_st* client, int index)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return nullptr;
  }
  return is_slot(index) ? client->privateData[index] : nullptr;
}

int ClientPrintInfo(tcp_client_st* client)
{
  if (client != nullptr)
  {
    char info[64];
    printf("    ==client sock:%s\n", sock_info_text(relaxed_load(client->sock), info, sizeof info));
  }
  return 0;
}
