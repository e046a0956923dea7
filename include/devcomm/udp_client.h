#pragma once

/// @file
/// A datagram service on one socket: a thread receives into a buffer, sends a queue to one fixed peer, and reports
/// each step to a callback. The datagram sibling of the connection of tcp_service.h, without idle polling and without
/// an idle time-out.
///
///     int on_event(SERVICE_STATE_E state, const char* data, int len, udp_client_st* client, void*)
///     {
///       return len;   // every datagram is consumed as it comes
///     }
///     sockaddr_in peer;
///     net_make_addr("192.168.1.20", 7000, &peer);
///     udp_client_st* client = UdpClientInit();
///     UdpClientStart(client, udp_unicast_init(7001, nullptr), peer, on_event, nullptr);
///     UdpClientSendData(client, "hello", 5);
///     ...
///     UdpClientUninit(client);
///
/// One pass of the thread: end on a pending socket error; wait up to 20 ms for the socket; read one datagram, cut to
/// 4096 bytes, and report RECV; send the whole queue as one datagram and report SEND. Queueing does not end the wait:
/// what is queued within one pass leaves together, up to 20 ms later.
///
/// The service ends by itself on a pending socket error (on a connected socket, a peer that is not there), on an empty
/// datagram, on a hard read or write error (a queue above 65507 bytes does not fit a datagram and is one), and on a
/// negative result of the callback. It then prints a line with the source line of the reason, in GBK, and
/// "udp remove conn, ..." on standard output; when it is stopped, only the latter.
///
/// A null record: an assertion report at level ERROR and -1 from UdpClientStart, 0 from the others; UdpClientUninit is
/// silent.

#include <devcomm/byte_buffer.h>
#include <devcomm/export.h>
#include <devcomm/tcp_service.h>
#include <devcomm/worker_thread.h>

#include <cstdint>

#include <netinet/in.h>
#include <pthread.h>

struct udp_client_st;

/// Called on the service's own thread, with no lock of the library held.
///
/// @param state   SERVICE_STATE_START once and first, _RECV after each datagram, _SEND after each datagram sent,
///                _CLOSE once and last, while the socket is still open; never _IDLE
/// @param data    all unconsumed received bytes, whatever the event: datagrams lie back to back, without their
///                boundaries and senders. Valid until the callback returns; null or any pointer when len is 0
/// @param len     their number, 0 or more
/// @param client  the service
/// @param arg     as given at start
/// @return bytes consumed, dropped from the front (more than len: all); 0 keeps them all; negative ends the service
///         (after SERVICE_STATE_CLOSE it is ignored)
///
/// A callback may queue data. UdpClientStop and UdpClientUninit of its own service only ask for the end there;
/// UdpClientStart is refused.
typedef int (*UdpCallback_t)(SERVICE_STATE_E state, const char* data, int len, udp_client_st* client,
                             void* arg);

/// A service. Only UdpClientInit makes one: the library keeps more beside it.
struct udp_client_st
{
  CommonThread_st* thread;  ///< the service's thread
  SimpleBufMng* recvBuf;    ///< received, not yet consumed; the service's thread alone touches it
  SimpleBufMng* sendBuf;    ///< queued for the peer
  pthread_mutex_t sendLock; ///< guards sendBuf
  sockaddr_in peer;         ///< where every datagram goes
  int32_t sock;             ///< -1 when none
  UdpCallback_t callback;
  void* arg;
};

/// Makes a service without a socket.
///
/// @return to be given to UdpClientUninit; null, with an assertion report at level WARNING, when memory runs out
DEVCOMM_API udp_client_st* UdpClientInit();

/// Starts the service's thread on a socket; empties both buffers.
///
/// @param client    from UdpClientInit; one whose service ended may be started again
/// @param sock      a UDP socket, best a non-blocking one as socket.h makes them: its mode is left as it is. The
///                  service's thread closes it when the result is 0. One below 1 ends the service at once
/// @param peer      where every datagram goes; other senders are received from as well
/// @param callback  gets the events; null: the service ends at once
/// @param arg       handed to the callback
/// @return 0; -1, with an assertion report at level WARNING, when the service runs already or its own callback calls
///
/// When the thread cannot be had from the system the result is 0 all the same: the socket is closed and client->sock
/// is -1.
DEVCOMM_API int UdpClientStart(udp_client_st* client, int sock, sockaddr_in peer, UdpCallback_t callback,
                               void* arg);

/// Ends the service and waits for its thread, which reports SERVICE_STATE_CLOSE and closes the socket.
///
/// @return 0
DEVCOMM_API int UdpClientStop(udp_client_st* client);

/// Stops and frees a service; from its own callback, the thread frees it after SERVICE_STATE_CLOSE.
///
/// @param client  null does nothing
/// @return 0
DEVCOMM_API int UdpClientUninit(udp_client_st* client);

/// Queues bytes for the peer and returns. All that is queued when the thread comes to send leaves as one datagram;
/// above 65507 bytes that fails and ends the service.
///
/// @param data  copied before the call returns; null, or len below 1, queues nothing
/// @param len   bytes
/// @return 0, also when memory ran out and nothing was queued
///
/// Any thread, callbacks included. Takes sendLock, which the thread holds while it sends.
DEVCOMM_API int UdpClientSendData(udp_client_st* client, const char* data, int len);

/// @return bytes queued and not yet sent; takes sendLock
DEVCOMM_API int UdpClientGetSendBufSize(udp_client_st* client);
