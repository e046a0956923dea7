#pragma once

#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

static_assert(sizeof(sockaddr_un) == 110, "the length that every bind, connect and receive uses");

/// The address of a path, cut to the 107 characters that fit. Whoever makes an address, binding, unlinking or
/// connecting, cuts here and so means the same file.
inline sockaddr_un unix_domain_address(const char* path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, strnlen(path, sizeof address.sun_path - 1));
  return address;
}
