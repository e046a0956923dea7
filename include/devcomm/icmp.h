#pragma once

#include <devcomm/export.h>

#include <cstdint>
#include <netinet/in.h>
#include <sys/time.h>

/// @file
/// Asks whether a host answers ICMP echo requests over IPv4 (RFC 792): a yes or no, or a count.
///
///     CICMP icmp;
///     if (icmp.NetIsOk("192.168.1.1") == 1)
///     {
///       start_upload();
///     }
///
/// Both ways need the right to open a raw socket (root, or CAP_NET_RAW) and block the caller's thread. Each
/// call opens a socket of its own and closes it. Replies are known by the low 16 bits of the process id:
/// threads of one process that ask at the same time may take each other's replies. A raw socket sees every
/// ICMP packet that comes to this machine, and any packet that is not the reply, save a request of this
/// process to itself, uses up the request under way. Failures are told on standard output or standard error.
/// Signals end no wait.
///
/// A request has 64 bytes: type 8, code 0, checksum, the process id and the request number (2 bytes each),
/// all in the host's byte order save the checksum, which has none; from offset 8 on two 32-bit words in the
/// host's byte order, the seconds and microseconds of the time of packing; zeros.

/// A yes or no from at most two requests. One thread at a time uses an object.
class DEVCOMM_API CICMP
{
public:
  CICMP();
  ~CICMP();
  CICMP(const CICMP&) = delete;
  CICMP& operator=(const CICMP&) = delete;

  /// Asks a host twice at most, waiting 2 seconds for each reply.
  ///
  /// @param host  dotted address or name; looking up a name takes as long as the resolver does
  /// @return 1 when a reply came; 0 otherwise, whatever the reason
  int NetIsOk(const char* host);

  // The steps of NetIsOk. Without it before them there is neither a socket nor an address to send to.

  /// Builds a request. @param buf  64 bytes at least @return 64; -1 for null
  int pack(int seq, char* buf);
  /// Builds a request in buf, of 64 bytes at least, and sends it. @return 1 or -1
  int send_packet(int seq, char* buf);
  /// Waits up to 2 seconds for a packet and looks whether it is the reply to a request.
  ///
  /// @param buf  640 bytes at least; receives the packet with its IP header
  /// @return 1 the reply, -1 nothing or something else, -2 receiving failed
  int recv_packet(int seq, char* buf);
  /// Looks whether a packet with its IP header is the reply to a request. @return 0 it is, -1 it is not
  int unpack(int seq, char* buf, int len);
  /// @return the checksum of len bytes (RFC 1071), as it stands in a packet
  unsigned short cal_chksum(unsigned short* buf, int len);
  /// Takes a time from another: *out -= *in.
  void tv_sub(timeval* out, timeval* in);
  /// Prints that the time is over. NetIsOk does not call it.
  void timeout();
  /// Closes the socket; without one it does nothing.
  void _CloseSocket();

private:
  sockaddr_in m_dest;  // whom NetIsOk asks
  timeval m_sendTime;  // of the latest request
  int32_t m_sock;      // raw and non-blocking; 0: none
  int32_t m_pid;       // identifies our requests
  char m_sendBuf[640]; // the request
  char m_recvBuf[640]; // the packet that came
};

/// Counts the requests that a host answers.
///
/// @param host   dotted address or name
/// @param count  requests to send, 10 at most are; below 1: none
/// @return requests answered, each within 1.2 seconds; -1 when the host is unknown or sending failed
DEVCOMM_API int Ping(const char* host, int count);

// The steps of Ping ----------------------------------------------------------------------------------------

/// Builds a request. @param buf  64 bytes at least @return 64; -1 for null
DEVCOMM_API int crate_icmp_packet(char* buf, unsigned int seq);

/// Builds a request in buf, of 64 bytes at least, and sends it. @param to  16 bytes, IPv4 @return 0 or -1
DEVCOMM_API int send_packet(int fd, sockaddr* to, char* buf, int seq);

/// Receives a packet, as long as that takes on a blocking socket, and unpacks it.
///
/// @param buf  2048 bytes at least; receives the packet with its IP header
/// @param len  receives its length; may be null
/// @return 0 when it is a reply to this process, -1 otherwise
DEVCOMM_API int recv_packet(int fd, char* buf, int* len, double* rtt_ms, unsigned int* out);

/// Looks whether a packet with its IP header is a reply to this process, whatever its request number.
///
/// @param from    not used; may be null
/// @param now     when the packet came; null: no round trip is told
/// @param rtt_ms  receives the whole milliseconds since its request was packed, 0 for a reply that carries
///                no time; may be null
/// @param out     receives the sender's address in network byte order; may be null
/// @return 0, or -1 with rtt_ms and out untouched
DEVCOMM_API int unpack(sockaddr_in* from, char* buf, int len, timeval* now, double* rtt_ms,
                       unsigned int* out);

/// Takes a time from another: *out -= *in.
DEVCOMM_API void calculate_interval(timeval* out, timeval* in);

/// @return the checksum of len bytes (RFC 1071), as it stands in a packet
DEVCOMM_API unsigned short calculate_checksum(unsigned short* buf, int len);
