#include <devcomm/udp_client.h>

#include "comm_server_client/client_parts.h"
#include "comm_server_client/udp_service.h"

#include "internal/assert_report.h"
#include "internal/relaxed.h"

#include <cstdio>
#include <new>

#include <unistd.h>

namespace
{

bool is_running(const udp_client_st* client)
{
  return relaxed_load(client->sock) >= 1 && ThreadGetStatus(client->thread) != 0;
}

void empty_buffers(udp_client_st* client)
{
  client->recvBuf->Drain(client->recvBuf->Length());
  pthread_mutex_lock(&client->sendLock);
  client->sendBuf->Drain(client->sendBuf->Length());
  pthread_mutex_unlock(&client->sendLock);
}

} // namespace

udp_client_st* UdpClientInit()
{
  auto* service = new (std::nothrow) UdpService();
  if (service == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return nullptr;
  }
  if (!make_client_parts(service))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    udp_service_free(service);
    return nullptr;
  }
  return service;
}

void udp_service_free(UdpService* service)
{
  free_client_parts(service);
  delete service;
}

int UdpClientStart(udp_client_st* client, int sock, sockaddr_in peer, UdpCallback_t callback, void* arg)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return -1;
  }
  if (is_running(client) || udp_service_is_current(client))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return -1;
  }
  // An old thread on its way out closes its own socket, and is gone before the record changes.
  ThreadStop(client->thread);
  relaxed_store(client->sock, sock);
  client->peer = peer;
  client->callback = callback;
  client->arg = arg;
  empty_buffers(client);
  char name[64];
  snprintf(name, sizeof name, "thread udp client thread, sock=%d", sock);
  const int result = ThreadStart(client->thread, udp_service_main, client, name);
  if (result == 0)
  {
    return 0;
  }
  relaxed_store(client->sock, -1);
  if (result < 0)
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    printf("err, start thread err\n");
    return -1;
  }
  if (sock >= 1)
  {
    close(sock); // the caller is told 0, and so has given the socket away
  }
  return 0;
}

int UdpClientStop(udp_client_st* client)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  if (udp_service_is_current(client)) // a callback cannot wait for its own thread
  {
    ThreadSetStatus(client->thread, 0);
    return 0;
  }
  ThreadStop(client->thread);
  relaxed_store(client->sock, -1);
  return 0;
}

int UdpClientUninit(udp_client_st* client)
{
  if (client == nullptr)
  {
    return 0;
  }
  auto* service = static_cast<UdpService*>(client);
  UdpClientStop(client);
  if (udp_service_is_current(client))
  {
    service->freeAtEnd = 1;
    return 0;
  }
  udp_service_free(service);
  return 0;
}

int UdpClientSendData(udp_client_st* client, const char* data, int len)
{
  if (client == nullptr)
  {
    DEVCOMM_ASSERT_REPORT(Error);
    return 0;
  }
  pthread_mutex_lock(&client->sendLock);
  if (data != nullptr && len > 0)
  {
    client->sendBuf->Add(data, static_cast<unsigned>(len));
  }
  pthread_mutex_unlock(&client->sendLock);
  return 0;
}

int UdpClientGetSendBufSize(udp_client_st* client)
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
