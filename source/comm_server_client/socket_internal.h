#pragma once

#include <cstddef>

/// What select_write does when a signal comes.
enum class OnSignal
{
  Fail,  ///< -1 with EINTR
  Resume ///< goes on for the rest of the time
};

/// select_write, with a choice on signals.
int wait_writable(int fd, int timeoutMs, OnSignal onSignal);

/// Resolves to the first address of a family (AF_UNSPEC: any), for datagrams.
///
/// @param room  bytes of out; a longer address is cut
/// @return 0, also when nothing was found and nothing written; -1 when resolving failed
int resolve_address(const char* host, int port, int family, void* out, size_t room);

/// Closes fd and keeps errno. @return -1
int close_failed(int fd);

/// Refuses descriptor 0 and passes any other on: callers take results below 1 for failures.
int refuse_zero(int fd);

/// The text of get_sock_info in a buffer of the caller, for threads that log at the same time.
///
/// @param size  64 holds every text
/// @return text
char* sock_info_text(int sock, char* text, size_t size);
