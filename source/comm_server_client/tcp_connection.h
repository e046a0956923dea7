#pragma once

#include "comm_server_client/server_link.h"

#include <devcomm/tcp_service.h>

// What the library keeps beside the public records. Every record comes from ServerInit or ClientInit, so a pointer to
// the public part always leads here.

struct Server : tcp_server_st
{
  ServerLink* link;
};

struct Connection : tcp_client_st
{
  ServerLink* link; // the owning server's; null for a standalone connection
  int wakeFd;       // eventfd polled beside the socket; -1 where none could be had. Guarded by sendLock
  int asleep;     // set under sendLock by a thread that waits and saw nothing to send; cleared when it wakes
  int freeAtEnd;  // the connection's own callback called ClientUninit
  int recvLength; // recvBuf's length as of the last read or drain, for other threads
};

/// Makes the private part of a record reachable.
inline Connection* connection_of(tcp_client_st* client)
{
  return static_cast<Connection*>(client);
}

/// Whether the caller is the connection's own thread, that is, one of its callbacks.
bool connection_is_current(const tcp_client_st* client);

/// Starts a connection's thread on a socket, as ClientStart does after its checks.
///
/// @return as ThreadStart: 0, below 0, or a positive error number. Unless it is 0 no thread has run, the record's
///         socket is -1 again and the socket is still open. After 0 a server-owned record may already be freed
int connection_start(Connection* connection, tcp_server_st* server, int sock, int timeoutMs,
                     TcpCallback_t callback, void* arg);

/// The connection's thread, from SERVICE_STATE_START to the end of the record or the thread.
void connection_main(CommonThread_st* thread, void* arg);

/// Frees a record whose thread has ended, or is calling as its last step.
void connection_free(Connection* connection);
