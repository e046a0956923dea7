#include "devcomm/socket.h"

#include "comm_server_client/socket_internal.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{

/// One end of a socket, ready to print.
struct Endpoint
{
  bool known = false;
  char text[INET_ADDRSTRLEN] = "xxx";
  unsigned int word = 0; // the address as it lies in memory
  int port = -1;
};

using AddressCall = int (*)(int, sockaddr*, socklen_t*);

Endpoint endpoint_of(int sock, AddressCall ask)
{
  Endpoint end;
  sockaddr_storage storage{};
  socklen_t storageLen = sizeof storage;
  if (ask(sock, reinterpret_cast<sockaddr*>(&storage), &storageLen) != 0)
  {
    return end;
  }
  sockaddr_in address;
  memcpy(&address, &storage, sizeof address);
  end.known = true;
  inet_ntop(AF_INET, &address.sin_addr, end.text, sizeof end.text);
  end.word = address.sin_addr.s_addr;
  end.port = ntohs(address.sin_port);
  return end;
}

/// "address(0xword):port", or "xxx:-1" for an unknown end.
void print_with_word(const Endpoint& end, char* text, size_t size)
{
  if (end.known)
  {
    snprintf(text, size, "%s(0x%x):%d", end.text, end.word, end.port);
  }
  else
  {
    snprintf(text, size, "%s:%d", end.text, end.port);
  }
}

} // namespace

char* sock_info_text(int sock, char* text, size_t size)
{
  const Endpoint local = endpoint_of(sock, getsockname);
  const Endpoint peer = endpoint_of(sock, getpeername);
  snprintf(text, size, "[%d](%s:%d)<->(%s:%d)", sock, local.text, local.port, peer.text, peer.port);
  return text;
}

char* get_sock_info(int sock)
{
  static char text[64];
  // Threads log through the one buffer at once: its last byte stays NUL whatever they write into it.
  char line[sizeof text] = {};
  sock_info_text(sock, line, sizeof line);
  memcpy(text, line, sizeof text);
  return text;
}

char* get_sock_info_ex(int sock, char* buf, unsigned int size)
{
  if (buf == nullptr)
  {
    return buf;
  }
  char local[40];
  char peer[40];
  print_with_word(endpoint_of(sock, getsockname), local, sizeof local);
  print_with_word(endpoint_of(sock, getpeername), peer, sizeof peer);
  // No text comes near 128 bytes, and snprintf of some C libraries refuses sizes above INT_MAX.
  snprintf(buf, std::min(size, 128U), "[%d](%s)<->(%s)", sock, local, peer);
  return buf;
}
