#pragma once

/// @file
/// TCP server and connections. A server record listens on one port with an accept thread; every connection has a
/// thread of its own that moves bytes between its socket and two byte buffers and reports each step to one
/// callback. The same connection record serves a single socket without a server (a standalone connection).
///
///     int on_event(SERVICE_STATE_E state, const char* data, int len, tcp_server_st*, tcp_client_st* client, void*)
///     {
///       if (state == SERVICE_STATE_RECV)
///         ClientSendData(client, data, len, 0);  // echo
///       return len;                              // all of it is consumed
///     }
///     tcp_server_st* server = ServerInit();
///     ServerStartListen(server, 9000, 60000, 16, on_event, nullptr);
///     ...
///     ServerStopListen(server);
///     ServerUninit(server);
///
/// One pass of a connection's thread: end on a pending socket error or on the idle time-out; report IDLE; wait up to
/// 20 ms for the socket; read at most 4096 bytes and report RECV; write the send queue and report SEND. Bytes queued
/// by another thread during the wait end it at once and leave within the same pass. docs/lifecycle.md numbers the
/// rules of stopping and freeing.
///
/// A null record: an assertion report at level ERROR and the failure result, or 0 where there is none;
/// ServerGetConnCount, ServerSendAll, ServerSendClient, ClientPrintInfo, ClientSetType and GetClientType are silent.

#include <devcomm/byte_buffer.h>
#include <devcomm/export.h>
#include <devcomm/worker_thread.h>

#include <cstdint>
#include <list>
#include <pthread.h>

/// Event given to a service's callback.
enum SERVICE_STATE_E
{
  SERVICE_STATE_START = 0, ///< once, first on the connection's thread, before any input or output
  SERVICE_STATE_CLOSE = 1, ///< once, when the connection ends for whatever reason; its socket is still open
  SERVICE_STATE_RECV = 2,  ///< after each successful read
  SERVICE_STATE_SEND = 3,  ///< after each successful write
  SERVICE_STATE_IDLE = 4   ///< at the top of each pass, unless bytes wait and the hold flag is set; TCP only
};

struct tcp_server_st;
struct tcp_client_st;

/// Called on the connection's own thread, with no lock of the library held.
///
/// @param state   the event
/// @param data    all unconsumed received bytes, whatever the event; valid until the callback returns; null or
///                any pointer when len is 0
/// @param len     their number, 0 or more
/// @param server  the owning server; null for a standalone connection, and once the server was freed
/// @param client  the connection; a server-owned one is freed by its thread after SERVICE_STATE_CLOSE
/// @param arg     as given at start
/// @return bytes consumed, dropped from the front (more than len: all); 0 keeps them all; negative ends the
///         connection (after SERVICE_STATE_CLOSE it is ignored)
///
/// Calls for one connection never overlap; those of different connections run in parallel. A callback may queue data
/// and use every other function, save waiting for its own thread; it must not block for long.
typedef int (*TcpCallback_t)(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* server,
                             tcp_client_st* client, void* arg);

/// A server. Only ServerInit makes one: the library keeps more beside it.
struct tcp_server_st
{
  int32_t listenSock;                 ///< -1 when not listening
  CommonThread_st* thread;            ///< the accept thread
  std::list<tcp_client_st*>* clients; ///< living connections in order of acceptance
  pthread_mutex_t clientsLock;        ///< guards clients
  int32_t port;
  int32_t timeoutMs; ///< idle time-out of accepted connections
  int32_t maxConn;   ///< limit of simultaneous connections
  TcpCallback_t callback;
  void* arg;
};

/// A connection. Only ClientInit makes one: the library keeps more beside it.
struct tcp_client_st
{
  CommonThread_st* thread;  ///< the connection's thread
  SimpleBufMng* recvBuf;    ///< received, not yet consumed; the connection's thread alone touches it
  SimpleBufMng* sendBuf;    ///< queued for sending
  pthread_mutex_t sendLock; ///< guards sendBuf and holdFlag
  int64_t lastActiveMs;     ///< wall-clock milliseconds of the start and of the last successful read or write
  void* privateData[16];    ///< the application's, cleared by each ClientStart
  int32_t type;             ///< the application's, 0 at first; see ServerSendClient
  tcp_server_st* server;    ///< owner, null for a standalone connection
  int32_t sock;             ///< -1 when none
  int32_t timeoutMs;        ///< idle time-out
  TcpCallback_t callback;
  void* arg;
  int32_t holdFlag; ///< as last given to ClientSendData or ClientSendList
};

// ---- server ----

/// Makes a server that does not listen yet.
///
/// @return to be given to ServerUninit; null, with an assertion report at level WARNING, when memory runs out
DEVCOMM_API tcp_server_st* ServerInit();

/// Opens the port and starts the accept thread.
///
/// @param server     from ServerInit
/// @param port       1 to 65535, on every local address
/// @param timeoutMs  idle time-out of accepted connections; 1000 and less mean 60000
/// @param maxConn    most connections at a time; below 1 means 1. Further peers are accepted and closed at once
/// @param callback   gets the events of every connection; not null
/// @param arg        handed to the callback
/// @return 0; -1, with an assertion report at level WARNING and a line on standard output, when the server already
///         runs, an argument is wrong, or the port cannot be had
///
/// When the accept thread cannot be had from the system the result is 0 all the same, and ServerGetStatus gives 0.
/// A process out of descriptors keeps its peers waiting in the backlog.
DEVCOMM_API int ServerStartListen(tcp_server_st* server, int port, int timeoutMs, int maxConn,
                                  TcpCallback_t callback, void* arg);

/// Stops the accept thread (it notices within a second), asks every connection to end, waits at most ten seconds for
/// them, and closes the port.
///
/// @return 0, also when connections had not ended in time: they are left running and listed; -1 when the server did
///         not listen
///
/// Not from a callback of the server's own connections: the wait would last its ten seconds.
DEVCOMM_API int ServerStopListen(tcp_server_st* server);

/// Frees a server after ServerStopListen. Ends no connection and closes no port: connections that live on get a null
/// server in their callbacks, and free themselves when they end.
///
/// @return 0
DEVCOMM_API int ServerUninit(tcp_server_st* server);

/// @return 1 while the port is open and the accept thread has not been asked to end, else 0
DEVCOMM_API int ServerGetStatus(tcp_server_st* server);

/// @return connections listed; takes clientsLock
DEVCOMM_API int ServerGetConnCount(tcp_server_st* server);

/// Queues the bytes on every connection, as ClientSendData with hold 0 does. Takes clientsLock.
///
/// @return 0
DEVCOMM_API int ServerSendAll(tcp_server_st* server, const char* data, int len);

/// Queues the bytes on every connection of the type (all of them, not one), as ClientSendData with hold 0 does.
/// Takes clientsLock.
///
/// @return 0
DEVCOMM_API int ServerSendClient(tcp_server_st* server, int type, const char* data, int len);

/// Prints the port, the listening socket and one line a connection on standard output. Takes clientsLock.
///
/// @return 0
DEVCOMM_API int ServerPrintInfo(tcp_server_st* server);

// ---- connection ----

/// Makes a connection without a socket.
///
/// @return to be given to ClientUninit; null, with an assertion report at level WARNING, when memory runs out
DEVCOMM_API tcp_client_st* ClientInit();

/// Starts the connection's thread on a connected socket; empties both buffers and clears the private data.
///
/// @param client     from ClientInit
/// @param server     null: a standalone connection, the caller's to stop and free. Otherwise the connection frees
///                   itself when it ends, and the caller does not touch it again outside its callback
/// @param sock       made non-blocking; the connection closes it when the result is 0
/// @param timeoutMs  idle time-out; below 1000 means 30000 (not the limit of ServerStartListen; this is meant)
/// @param callback   gets the events; null: the connection ends at once
/// @param arg        handed to the callback
/// @return 0; -1, with an assertion report at level WARNING, when the connection runs already, when its own callback
///         calls, or when the thread's handle is missing
///
/// When the thread cannot be had from the system the result is 0 all the same: the socket is closed and
/// ClientGetStatus gives 0. A connection that ended may be started again.
DEVCOMM_API int ClientStart(tcp_client_st* client, tcp_server_st* server, int sock, int timeoutMs,
                            TcpCallback_t callback, void* arg);

/// Ends a standalone connection and waits for its thread, which reports SERVICE_STATE_CLOSE and closes the socket.
/// From its own callback, and on a server-owned connection, it only asks for the end.
///
/// @return 0
DEVCOMM_API int ClientStop(tcp_client_st* client);

/// Stops and frees a standalone connection. From its own callback, and on a server-owned connection, it asks for the
/// end; the connection's thread then frees it.
///
/// @return 0
DEVCOMM_API int ClientUninit(tcp_client_st* client);

/// @return 1 while there is a socket and the thread has not been asked to end, else 0
DEVCOMM_API int ClientGetStatus(tcp_client_st* client);

/// Queues bytes for the peer and returns; the connection's thread writes them as the socket takes them, at once when
/// it is waiting (at its next pass, up to 20 ms later, where the process had no descriptor left for the wake-up).
///
/// @param client  from ClientInit, or the one given to the callback
/// @param data    copied before the call returns; null, or len below 1, queues nothing
/// @param len     bytes
/// @param hold    non-zero: SERVICE_STATE_IDLE is not reported until the queue is empty; set in every case
/// @return 0, also when memory ran out and nothing was queued
///
/// Any thread, callbacks included. Takes the connection's sendLock.
DEVCOMM_API int ClientSendData(tcp_client_st* client, const char* data, int len, int hold);

/// Queues several pieces without any other between them; see ClientSendData.
///
/// @param bufs   null entries are skipped
/// @param lens   bytes of each; entries below 1 are skipped
/// @param count  entries; below 1 only sets the hold flag
/// @return 0
DEVCOMM_API int ClientSendList(tcp_client_st* client, char** bufs, int* lens, int count, int hold);

/// @return bytes queued and not yet written; takes sendLock
DEVCOMM_API int ClientGetSendBufSize(tcp_client_st* client);

/// @return bytes received and not yet consumed, without a lock; off the connection's thread only a hint
DEVCOMM_API int ClientGetRecvBufSize(tcp_client_st* client);

/// Sets the type that ServerSendClient selects by; kept over ClientStart.
DEVCOMM_API void ClientSetType(tcp_client_st* client, int type);

/// @return the type; 0 for a null record
DEVCOMM_API int GetClientType(tcp_client_st* client);

/// Sets the idle time-out as given, without the limit of ClientStart; below 0 ends the connection in its next pass.
DEVCOMM_API void ClientSetTimeout(tcp_client_st* client, int ms);

/// Stores the application's pointer in slot 0 to 15; another index is reported at level ERROR and stores nothing.
///
/// @return 0
DEVCOMM_API int ClientSetPrivateData(tcp_client_st* client, int index, void* value);

/// @return the pointer in slot 0 to 15; another index is reported at level ERROR and gives null
DEVCOMM_API void* ClientGetPrivateData(tcp_client_st* client, int index);

/// Prints the connection's two endpoints on standard output.
///
/// @return 0
DEVCOMM_API int ClientPrintInfo(tcp_client_st* client);

namespace nw
{

/// What an application keeps about a peer of its own. The library makes none.
class DEVCOMM_API CClient
{
public:
  /// @param socket  closed by the destructor when 1 or more
  explicit CClient(int socket);
  virtual ~CClient();
  CClient(const CClient&) = delete;
  CClient& operator=(const CClient&) = delete;

  /// Prints the fields on standard output, times as seconds since then. One thread at a time.
  void PrintInfo();

  int32_t sock;
  char info[64];    ///< text, empty at first
  int32_t quitFlag; ///< 0 at first
  uint8_t area[64]; ///< the application's, zero at first
  // Wall-clock milliseconds, all set to the time of construction.
  int64_t createTime;
  int64_t lastRecvTime;
  int64_t lastSendTime;
  int64_t startTime;
  int32_t recvCount[2]; ///< 0 at first; printed second before first
  int32_t sendCount[2]; ///< 0 at first; printed second before first
};

} // namespace nw
