#pragma once

#include <sys/types.h>

#include <cstddef>

/// write() on a socket or any other descriptor that fails with EPIPE, without the signal, when the other end
/// is gone: an application that registered nothing must not die of a vanished peer.
ssize_t quiet_write(int fd, const void* data, size_t len);

/// quiet_write for a descriptor that poll() calls writable, which never blocks: a socket takes what fits, anything
/// else no more than a pipe with any room takes at once.
ssize_t quiet_write_ready(int fd, const void* data, size_t len);
