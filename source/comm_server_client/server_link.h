#pragma once

#include <devcomm/tcp_service.h>

#include <atomic>

// What a server shares with its connections and outlives it: connections may end long after ServerUninit, so the way
// to their server leads through this block and never through a pointer of their own.
struct ServerLink
{
  pthread_mutex_t lock;   // guards server; taken before the server's clientsLock
  tcp_server_st* server;  // null once the server is being freed; also read without the lock
  std::atomic<int> users; // the server and every connection that holds the block
};

/// Makes the block with the server as its one user; null when memory ran out.
ServerLink* link_create(tcp_server_st* server);

/// Adds a user.
void link_hold(ServerLink* link);

/// Drops a user; the last one frees the block.
void link_drop(ServerLink* link);

/// The server goes away: no connection touches it after this returns. Takes its clientsLock.
void link_detach_server(ServerLink* link);

/// Takes every entry of the connection out of the server's list, if there is still a server.
void link_unlist(ServerLink* link, tcp_client_st* client);
