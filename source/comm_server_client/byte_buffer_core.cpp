#include "comm_server_client/byte_buffer_core.h"

#include "internal/quiet_write.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr uint64_t kSmallestStorage = 256;
constexpr unsigned int kReadAtOnce = 4096;

/// Callers look at errno to tell "later" from "never": one left over from another call must not decide.
int refuse_null()
{
  errno = EINVAL;
  return -1;
}

/// Bytes of storage from the origin to need bytes after the data.
uint64_t span_with(const ExpandBuffer& buf, unsigned int need)
{
  return uint64_t{buf.misalign} + buf.length + need;
}

void move_to_front(ExpandBuffer* buf)
{
  if (buf->misalign != 0)
  {
    memmove(buf->origin, buf->buffer, buf->length);
    buf->buffer = buf->origin;
    buf->misalign = 0;
  }
}

/// A storage that is not new doubles at least once; span still counts the consumed front, so that the
/// buffer grows a little more than the data needs.
uint64_t grown_size(const ExpandBuffer& buf, uint64_t span)
{
  uint64_t size = std::max<uint64_t>(buf.totallen, kSmallestStorage);
  while (size < span)
  {
    size *= 2;
  }
  return size;
}

int reallocate(ExpandBuffer* buf, uint64_t span, Growth growth)
{
  const uint64_t size = grown_size(*buf, span);
  if (size > UINT32_MAX)
  {
    errno = ENOMEM;
    return -1;
  }
  if (growth == Growth::Printed)
  {
    printf("buf ptr=0x%x, buf->totallen =%ld , length=%ld, need=%ld\n",
           static_cast<unsigned int>(reinterpret_cast<uintptr_t>(buf)), static_cast<long>(buf->totallen),
           static_cast<long>(size), static_cast<long>(span));
  }
  move_to_front(buf);
  void* storage = realloc(buf->origin, static_cast<size_t>(size));
  if (storage == nullptr)
  {
    return -1;
  }
  buf->origin = static_cast<uint8_t*>(storage);
  buf->buffer = buf->origin;
  buf->totallen = static_cast<uint32_t>(size);
  return 0;
}

void append_fitting(ExpandBuffer* buf, const void* data, unsigned int len)
{
  if (len != 0)
  {
    memmove(buf->buffer + buf->length, data, len);
    buf->length += len;
  }
}

bool in_storage(const ExpandBuffer& buf, const void* data)
{
  const auto place = reinterpret_cast<uintptr_t>(data);
  const auto start = reinterpret_cast<uintptr_t>(buf.origin);
  return place >= start && place - start < buf.totallen;
}

/// Appends bytes of the buffer's own storage, which growing may move or free: a copy of them survives.
int add_own_bytes(ExpandBuffer* buf, const void* data, unsigned int len, Growth growth)
{
  void* copy = malloc(len);
  if (copy == nullptr)
  {
    return -1;
  }
  memcpy(copy, data, len);
  const int result = buffer_expand(buf, len, growth);
  if (result == 0)
  {
    append_fitting(buf, copy, len);
  }
  free(copy);
  return result;
}

} // namespace

int buffer_expand(ExpandBuffer* buf, unsigned int need, Growth growth)
{
  if (buf == nullptr)
  {
    return refuse_null();
  }
  const uint64_t span = span_with(*buf, need);
  if (span <= buf->totallen)
  {
    return 0;
  }
  if (buf->misalign >= need)
  {
    move_to_front(buf);
    return 0;
  }
  return reallocate(buf, span, growth);
}

int buffer_add(ExpandBuffer* buf, const void* data, unsigned int len, Growth growth)
{
  if (buf == nullptr || (data == nullptr && len != 0))
  {
    return -1;
  }
  if (span_with(*buf, len) > buf->totallen)
  {
    if (len != 0 && in_storage(*buf, data))
    {
      return add_own_bytes(buf, data, len, growth);
    }
    if (buffer_expand(buf, len, growth) != 0)
    {
      return -1;
    }
  }
  append_fitting(buf, data, len);
  return 0;
}

void buffer_drain(ExpandBuffer* buf, unsigned int n)
{
  if (buf == nullptr)
  {
    return;
  }
  if (n >= buf->length)
  {
    buf->length = 0;
    buf->buffer = buf->origin;
    buf->misalign = 0;
    return;
  }
  buf->buffer += n;
  buf->misalign += n;
  buf->length -= n;
}

unsigned int buffer_remove(ExpandBuffer* buf, void* out, unsigned int n)
{
  if (buf == nullptr || out == nullptr)
  {
    return 0;
  }
  const unsigned int count = std::min(n, buf->length);
  if (count != 0)
  {
    memcpy(out, buf->buffer, count);
    buffer_drain(buf, count);
  }
  return count;
}

unsigned char* buffer_find(const ExpandBuffer* buf, const unsigned char* what, unsigned int len)
{
  if (buf == nullptr || buf->length == 0 || what == nullptr || len == 0)
  {
    return nullptr;
  }
  return static_cast<unsigned char*>(memmem(buf->buffer, buf->length, what, len));
}

int buffer_read_room(ExpandBuffer* buf, int howmuch, Growth growth, unsigned int* room)
{
  *room = std::min(static_cast<unsigned int>(howmuch), kReadAtOnce);
  return buffer_expand(buf, *room, growth);
}

int buffer_read(ExpandBuffer* buf, int fd, int howmuch, Growth growth)
{
  unsigned int room = 0;
  if (buffer_read_room(buf, howmuch, growth, &room) != 0)
  {
    return -1;
  }
  const ssize_t got = read(fd, buf->buffer + buf->length, room);
  if (got > 0)
  {
    buf->length += static_cast<uint32_t>(got);
  }
  return static_cast<int>(got);
}

int buffer_write(ExpandBuffer* buf, int fd, unsigned int most)
{
  if (buf == nullptr)
  {
    return refuse_null();
  }
  const ssize_t taken = quiet_write(fd, buf->buffer, std::min(most, buf->length));
  if (taken > 0)
  {
    buffer_drain(buf, static_cast<unsigned int>(taken));
  }
  return static_cast<int>(taken);
}
