#include "devcomm/socket.h"

#include "comm_server_client/socket_internal.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr size_t kMostHostEntry = 262144;

/// The address of the first entry of a host's name, by the reentrant gethostbyname.
/// @return 0, or -1 when the name is unknown
int first_host_address(const char* host, in_addr* address)
{
  char* room = nullptr;
  for (size_t size = 2048; size <= kMostHostEntry; size *= 2)
  {
    char* larger = static_cast<char*>(realloc(room, size));
    if (larger == nullptr)
    {
      break;
    }
    room = larger;
    hostent entry{};
    hostent* found = nullptr;
    int hostError = 0;
    const int result = gethostbyname2_r(host, AF_INET, &entry, room, size, &found, &hostError);
    if (result == ERANGE)
    {
      continue;
    }
    const bool usable = result == 0 && found != nullptr && found->h_addr_list[0] != nullptr;
    if (usable)
    {
      memcpy(address, found->h_addr_list[0], sizeof *address);
    }
    free(room);
    return usable ? 0 : -1;
  }
  free(room);
  return -1;
}

} // namespace

int net_make_addr(const char* host, int port, sockaddr_in* out)
{
  if (host == nullptr)
  {
    errno = EINVAL;
    return -1;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = inet_addr(host);
  // 255.255.255.255 looks like a failure here and comes back whole from the name lookup.
  if (address.sin_addr.s_addr == INADDR_NONE && first_host_address(host, &address.sin_addr) != 0)
  {
    return -1;
  }
  if (out != nullptr)
  {
    *out = address;
  }
  return 0;
}

int resolve_address(const char* host, int port, int family, void* out, size_t room)
{
  char service[16];
  snprintf(service, sizeof service, "%d", port);
  addrinfo hints{};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host, service, &hints, &list) != 0)
  {
    return -1;
  }
  if (list == nullptr)
  {
    return 0;
  }
  if (out != nullptr)
  {
    memcpy(out, list->ai_addr, std::min<size_t>(list->ai_addrlen, room));
  }
  freeaddrinfo(list);
  return 0;
}

int get_addr(const char* host, int port, void* out)
{
  return resolve_address(host, port, AF_UNSPEC, out, sizeof(sockaddr_storage));
}
