#pragma once

/// @file
/// Messages between the processes of one machine: a listener with a thread of its own on a named socket, and a
/// sender that delivers one datagram to a name and may wait for one reply. Unix-domain datagrams (unix(7)) keep
/// their boundaries and are not lost between a successful send and a living listener.
///
///     int on_message(int sock, sockaddr_un* from, unsigned* fromLen, char* data, int len, void*)
///     {
///       char answer[] = "pong";
///       return SendUnixDomainDataToAddr(sock, from, fromLen, answer, sizeof answer);
///     }
///     char path[] = "/tmp/recorder.sock";
///     void* listener = StartUnixDomainListen(path, on_message, nullptr);   // in one process
///     ...
///     char ping[] = "ping";                                                // in another
///     char reply[64];
///     int replyLen = sizeof reply;
///     SendUnixDomainDataToName(ping, sizeof ping, "/tmp/recorder.sock", 1, 0, 1, reply, &replyLen);
///     ...
///     StopUnixDomainListen(listener);
///
/// Of a name longer than 107 characters listener and sender both take the first 107. Messages go to standard output.

#include <devcomm/export.h>
#include <devcomm/worker_thread.h>

#include <cstdint>

#include <sys/socket.h>
#include <sys/un.h>

/// Called on the listener's thread for each datagram, with no lock of the library held.
///
/// @param sock     the listening socket, to answer with
/// @param from     the sender's address, all zero for a sender that has none; good for SendUnixDomainDataToAddr
///                 until the callback returns
/// @param fromLen  its length in bytes; 0 for a sender without an address, who cannot be answered
/// @param data     the datagram in a buffer of 4352 bytes, zero behind the datagram; a zero also follows a full
///                 buffer. Valid until the callback returns, which may write into the 4352 bytes
/// @param len      bytes received, 0 to 4352; of a longer datagram the rest is lost
/// @param arg      as given to StartUnixDomainListen
/// @return not used
///
/// A callback that takes longer than 120 seconds makes the software watchdog report the listener.
typedef int (*UnixDomainCallback_t)(int sock, sockaddr_un* from, unsigned* fromLen, char* data, int len,
                                    void* arg);

/// What the handle of StartUnixDomainListen points to. Applications read it; only the library makes and writes it.
struct unix_domain_listen_st
{
  char path[256];          ///< as given, cut to 255 characters
  int32_t sock;            ///< 0 until the listener is bound, then its socket; -1 once the thread has ended
  CommonThread_st* thread; ///< the listener's thread
  UnixDomainCallback_t callback;
  void* arg;
  int32_t dogId; ///< at the software watchdog; valid while sock is above 0
};

/// Starts a thread that binds a datagram socket to a path and calls back for every datagram.
///
/// @param path      copied; a file there, a stale socket in particular, is removed first. Null: null
/// @param callback  null: null
/// @param arg       handed to the callback
/// @return a handle for StopUnixDomainListen, pointing to a unix_domain_listen_st; null when memory runs out
///
/// The handle says only that the thread was asked for: a listener that gets no thread, socket, path or memory stays
/// silent, with sock 0. Bound, it prints "UnixDomainProc fd = ..., pid = ..." and receives until it is stopped. It
/// feeds a dog named "UnixDomain" (time-out 120 seconds) at the software watchdog at least once a second.
DEVCOMM_API void* StartUnixDomainListen(char* path, UnixDomainCallback_t callback, void* arg);

/// Ends a listener, waits for its thread (about a second at most, plus the running callback) and frees the handle.
/// Leaves the socket's file behind. Prints "Unix Domain Thread Exit" if the listener was bound.
///
/// @param handle  from StartUnixDomainListen, not used again; null does nothing
/// @return 0
///
/// From the listener's own callback it only asks for the end: the thread frees the handle after the callback.
DEVCOMM_API int StopUnixDomainListen(void* handle);

/// Sends one datagram to an address, as a callback does to answer.
///
/// @param sock     a Unix-domain datagram socket. When it does not block, as a listener's does not, a receiver whose
///                 queue is full is not waited for
/// @param addr     receiver
/// @param addrLen  bytes of addr
/// @param data     bytes to send
/// @param len      their number; 0 sends an empty datagram
/// @return 0 when all len bytes went; else -1, as for a null address or length; errno tells
///
/// Any thread.
DEVCOMM_API int SendUnixDomainDataToAddr(int sock, sockaddr_un* addr, unsigned* addrLen, char* data, int len);

/// Sends one datagram to a name and, if wanted, waits for one datagram in reply.
///
/// @param data         bytes to send
/// @param len          their number; 0 sends an empty datagram
/// @param name         the listener's path
/// @param timeoutSec   seconds, and
/// @param timeoutUsec  microseconds, to wait for the listener's queue to have room, and again for the reply
/// @param wantReply    0: returns as soon as the datagram is delivered to the queue
/// @param reply        receives the reply; untouched when none is wanted. Null with a reply wanted: -1, nothing sent
/// @param replyLen     in: bytes of reply, a longer one is cut; out: bytes received. Null as reply
/// @return 0; -1 when name is null or nobody listens there (both silent), when sending failed ("send to ...
///         fail(CODE)": -1 a signal came, -2 waiting failed, -3 no room in time, -4 writing failed), or when no reply
///         of at least one byte came ("wait recv ... fail")
///
/// Blocks for at most the two time-outs. The reply address is "/tmp/unixdomain_" and the process id, so one process
/// sends one message at a time: a second thread would take the address away, and with it the reply. A listener's
/// answer that nobody waited for, or that comes too late, may reach the process's next message instead.
DEVCOMM_API int SendUnixDomainDataToName(char* data, int len, const char* name, int timeoutSec,
                                         int timeoutUsec, int wantReply, char* reply, int* replyLen);

/// Prints "[YYYYMMDD-hhmmss][PROCESS] " in local time, the formatted message and a line end on standard output. A
/// message with a line end of its own leaves an empty line behind it, which is meant.
///
/// @param format  printf's; null prints the head alone. What exceeds 1023 characters with the head is cut
/// @return 0
///
/// Any thread.
DEVCOMM_API int UnixDomainDbgLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
