#pragma once

/// @file
/// Socket primitives: small functions over IPv4 sockets that open, address, wait and describe.
///
/// Rules they share: a failure is -1 with errno as the failing call left it; a function that made a socket
/// closes it before it fails; descriptor 0 is refused like -1 (errno EBADF). An optional output address is
/// written only when the pointer is not null, and only on success. Sockets are close-on-exec, and
/// non-blocking save that of net_udp_connect. Nothing is printed, and no SIGPIPE is raised.
///
/// Any thread may call any of them; only get_sock_info shares state (its text) between calls.

#include <devcomm/export.h>

#include <netinet/in.h>
#include <sys/socket.h>

// Addresses ------------------------------------------------------------------------------------------------

/// Makes an IPv4 address from a dotted address or a host name.
///
/// @param host  dotted address, else a name to resolve (its first address counts); null: -1
/// @param port  host byte order; the low 16 bits count
/// @param out   16 bytes, port and address in network byte order; may be null
/// @return 0, or -1 (all ones) when the name has no address; then out is untouched
///
/// Blocks while the resolver works.
DEVCOMM_API int net_make_addr(const char* host, int port, sockaddr_in* out);

/// Resolves a host name to its first address of any family.
///
/// @param host  name or numeric address; null: the loopback address
/// @param port  host byte order, 0 to 65535
/// @param out   receives the address in its own length, which may be 28 bytes (IPv6): give it a
///              sockaddr_storage. Untouched on failure and for an empty answer. May be null
/// @return 0, or -1 when resolving failed
///
/// Blocks while the resolver works (getaddrinfo, RFC 3493).
DEVCOMM_API int get_addr(const char* host, int port, void* out);

// Datagrams ------------------------------------------------------------------------------------------------

/// Opens a blocking UDP socket and makes the address of the one to talk to. It neither connects nor binds.
///
/// @param host  as for net_make_addr
/// @param port  1 or above, else -1 without opening a socket
/// @param out   receives the peer's address, for udp_write; may be null
/// @return the socket, which the caller closes, or -1
DEVCOMM_API int net_udp_connect(const char* host, int port, sockaddr_in* out);

/// Opens a non-blocking UDP socket on a port of every interface, address reuse on.
///
/// @param port  0: a free port; negative: a socket for sending only, not bound and without address reuse
/// @param out   receives the bound address (0.0.0.0 and the port); untouched for a negative port; may be null
/// @return the socket, which the caller closes, or -1
DEVCOMM_API int udp_unicast_init(int port, sockaddr_in* out);

/// As udp_unicast_init on a port of 0 or above, and allowed to send broadcasts. Its multicast time to live
/// is 2 and its multicast loop is off, as with udp_multicast_init.
DEVCOMM_API int udp_broadcast_init(int port, sockaddr_in* out);

/// As udp_unicast_init on a port of 0 or above, and member of a multicast group on the default interface;
/// sent datagrams live for 2 hops and do not loop back.
///
/// @param group  dotted multicast address; anything else, also null: -1
DEVCOMM_API int udp_multicast_init(const char* group, int port, sockaddr_in* out);

/// Sends one datagram.
///
/// @param data  bytes; null: -1
/// @param len   bytes; negative: data is a text and leaves with its terminating NUL
/// @param to    16 bytes, an IPv4 address; null sends to the peer of a connected socket
/// @return bytes sent, or -1, also for a datagram of no bytes, which is sent nevertheless
DEVCOMM_API int udp_write(int sock, const char* data, int len, sockaddr* to);

/// Receives one datagram, cut to len bytes.
///
/// @param from  receives the sender's address; may be null
/// @return bytes read, or -1, also for a datagram of no bytes, which is taken nevertheless
DEVCOMM_API int udp_read(int sock, void* buf, unsigned int len, sockaddr_in* from);

// Streams --------------------------------------------------------------------------------------------------

/// Opens a non-blocking listening TCP socket on every interface, address reuse on, with a backlog of 5.
///
/// @param port  0: a free port
/// @param out   receives the bound address (0.0.0.0 and the port); may be null
/// @return the socket, which the caller closes, or -1
DEVCOMM_API int tcp_listen(int port, sockaddr_in* out);

/// Accepts one connection; its blocking mode is the platform's (blocking on Linux).
///
/// @param peer  receives the peer's address; may be null
/// @return the new socket, which the caller closes, or -1 (EAGAIN when none waits)
DEVCOMM_API int tcp_accept(int listenSock, sockaddr_in* peer);

/// Connects over IPv4 to the first IPv4 address of a host.
///
/// @param out        receives the peer's address; may be null
/// @param timeoutMs  negative: as long as the system tries; else the time of select_write. Within it a
///                   refusal counts as connected: ask check_sock_err
/// @param rcvBuf     above 0: SO_RCVBUF, bytes
/// @param sndBuf     above 0: sets SO_SNDBUF as well, to the size of rcvBuf, not of sndBuf
/// @return the connected socket, non-blocking, which the caller closes, or -1
///
/// A signal does not end the waiting.
DEVCOMM_API int tcp_connect(const char* host, int port, sockaddr_in* out, int timeoutMs, int rcvBuf,
                            int sndBuf);

// Waiting and state ----------------------------------------------------------------------------------------

/// Waits until a descriptor is readable, which end of file, hang-up and a pending error count as.
///
/// @param fd         any number: it may be above FD_SETSIZE
/// @param timeoutMs  0: asks without waiting. The part below a second is waited in microseconds: 1500 waits
///                   1 s and 500 us, 999 waits 999 us
/// @return 1 ready, 0 time is over, -1 failed: EINTR (a signal came), EBADF (not open, or negative),
///         EINVAL (negative time)
DEVCOMM_API int select_read(int fd, int timeoutMs);

/// As select_read, for writable, which a pending error counts as.
DEVCOMM_API int select_write(int fd, int timeoutMs);

/// Takes a socket's pending error.
///
/// @return 0 when there is none; -1 when there is one, now in errno and no longer pending, or when sock is
///         no socket
DEVCOMM_API int check_sock_err(int sock);

/// Sets a descriptor's blocking mode.
///
/// @param mode  1: non-blocking; any other value: blocking
/// @return of fcntl: 0, or -1
DEVCOMM_API int set_block_ctl(int fd, int mode);

// Text for log lines ---------------------------------------------------------------------------------------

/// Describes a socket's two ends: "[sock](local address:port)<->(peer address:port)"; an end that the
/// kernel does not know reads "xxx" and -1.
///
/// @return a text of at most 63 characters in a static buffer, which the next call from any thread
///         overwrites; never null
DEVCOMM_API char* get_sock_info(int sock);

/// As get_sock_info, into the caller's buffer and with each known address repeated as its raw word in
/// hexadecimal: "127.0.0.1(0x100007f)" on a little-endian machine.
///
/// @param buf   receives the text, cut to size - 1 characters and terminated; null writes nothing
/// @return buf
DEVCOMM_API char* get_sock_info_ex(int sock, char* buf, unsigned int size);
