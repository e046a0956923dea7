#include "comm_server_client/server_link.h"

#include "internal/relaxed.h"

#include <new>

ServerLink* link_create(tcp_server_st* server)
{
  auto* link = new (std::nothrow) ServerLink();
  if (link != nullptr)
  {
    pthread_mutex_init(&link->lock, nullptr);
    link->server = server;
    link->users = 1;
  }
  return link;
}

void link_hold(ServerLink* link)
{
  ++link->users; // no lock: the accept thread holds clientsLock here
}

void link_drop(ServerLink* link)
{
  if (--link->users == 0)
  {
    pthread_mutex_destroy(&link->lock);
    delete link;
  }
}

void link_detach_server(ServerLink* link)
{
  pthread_mutex_lock(&link->lock);
  tcp_server_st* server = link->server;
  relaxed_store(link->server, static_cast<tcp_server_st*>(nullptr));
  pthread_mutex_lock(&server->clientsLock);
  for (tcp_client_st* client : *server->clients) // a listed connection cannot be freed while we hold the lock
  {
    relaxed_store(client->server, static_cast<tcp_server_st*>(nullptr));
  }
  pthread_mutex_unlock(&server->clientsLock);
  pthread_mutex_unlock(&link->lock);
}

void link_unlist(ServerLink* link, tcp_client_st* client)
{
  pthread_mutex_lock(&link->lock);
  if (link->server != nullptr)
  {
    pthread_mutex_lock(&link->server->clientsLock);
    link->server->clients->remove(client);
    pthread_mutex_unlock(&link->server->clientsLock);
  }
  pthread_mutex_unlock(&link->lock);
}
