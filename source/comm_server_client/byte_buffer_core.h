#pragma once

#include "devcomm/byte_buffer.h"

// The one design behind SimpleBufMng and the ExpandBuffer functions, which document it. Null records are
// refused here, for both.

/// Whether reallocations are printed, as the record form does, or silent, as in the class.
enum class Growth
{
  Silent,
  Printed
};

int buffer_expand(ExpandBuffer* buf, unsigned int need, Growth growth);
int buffer_add(ExpandBuffer* buf, const void* data, unsigned int len, Growth growth);
void buffer_drain(ExpandBuffer* buf, unsigned int n);
unsigned int buffer_remove(ExpandBuffer* buf, void* out, unsigned int n);
unsigned char* buffer_find(const ExpandBuffer* buf, const unsigned char* what, unsigned int len);

int buffer_read(ExpandBuffer* buf, int fd, int howmuch, Growth growth);

/// Writes at most `most` bytes of the data by one call.
int buffer_write(ExpandBuffer* buf, int fd, unsigned int most);

/// Makes room for one read call of at most howmuch bytes.
/// @param room  set to the bytes to read to buffer + length
/// @return 0, or -1 when growing failed
int buffer_read_room(ExpandBuffer* buf, int howmuch, Growth growth, unsigned int* room);
