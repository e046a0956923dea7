#pragma once

#include <sys/types.h>

#include <cstddef>

/// write() on a socket or any other descriptor that fails with EPIPE, without the signal, when the other end
/// is gone: an application that registered nothing must not die of a vanished peer.
ssize_t quiet_write(int fd, const void* data, size_t len);
