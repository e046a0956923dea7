#pragma once

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <sys/time.h>

// What both ways of asking a host share: the echo request, the look at what comes back, and the raw socket.

constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEchoRequest = 8;
constexpr int kHeadSize = 8; // type, code, checksum, identifier, sequence

/// Layout of the request; its fields are in the host's byte order.
struct EchoRequest
{
  uint8_t type;
  uint8_t code;
  uint16_t checksum;
  uint16_t identifier;
  uint16_t sequence;
  int32_t seconds; // two 32-bit words on every machine
  int32_t microseconds;
  uint8_t padding[48];
};
static_assert(sizeof(EchoRequest) == 64 && offsetof(EchoRequest, seconds) == kHeadSize,
              "a packet on the wire");

/// The ICMP part of a received packet.
struct EchoView
{
  const char* data = nullptr; ///< null: shorter than kHeadSize
  int len = 0;
  uint8_t type = 0;
  uint16_t identifier = 0;
  uint16_t sequence = 0;
};

/// Internet checksum (RFC 1071) over words as they lie in memory.
uint16_t internet_checksum(const void* data, int len);

/// Builds the request of a process. @return its size, or -1 for null
int pack_request(char* buf, int pid, unsigned int seq);

/// Skips the IP header of a received packet, without trusting its length.
EchoView view_packet(const char* packet, int len);

/// Whether it is a reply to a request of a process.
bool is_reply_to(const EchoView& echo, int pid);

/// out -= in
void subtract_time(timeval* out, const timeval* in);

/// An address for a dotted address or a name. @return 0 or -1
int find_host(const char* host, sockaddr_in* address);

/// A raw ICMP socket, never descriptor 0. @return it, or -1
int open_raw_socket();

/// Waits for a packet. When this machine is the host asked, a raw socket also gets the requests it sent: those
/// of this process to that host, or from an address to itself, are passed over. Source and destination differ
/// for 127.0.0.2 and for the second address of an interface.
///
/// @return above 0 when one can be read, 0 when the time is over, -1 when waiting failed
int wait_for_packet(int sock, int pid, in_addr host, int timeoutMs);
