#pragma once

#include <cerrno>

/// @return true for commands that move their data by DMA
bool is_dma_command(unsigned char cmd);

/// @return true when this errno of sg16 means that the legacy ioctls are worth a try
inline bool is_refused(int error)
{
  return error == EBADE || error == EINVAL || error == ENODEV;
}
