#include "comm_server_client/byte_buffer_core.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace
{

constexpr unsigned int kFormatRoom = 2048;

bool is_line_end(uint8_t byte)
{
  return byte == '\r' || byte == '\n';
}

/// Bytes before the first line end; the length of the data when there is none.
uint32_t line_length(const ExpandBuffer& buf)
{
  return static_cast<uint32_t>(std::find_if(buf.buffer, buf.buffer + buf.length, is_line_end) - buf.buffer);
}

/// Formats into the free space without claiming it; the result is vsnprintf's.
int format_into_space(ExpandBuffer* buf, size_t space, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

int format_into_space(ExpandBuffer* buf, size_t space, const char* format, va_list args)
{
  va_list pass;
  va_copy(pass, args);
  char* end = space == 0 ? nullptr : reinterpret_cast<char*>(buf->buffer + buf->length);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker loses va_copy across functions
  const int result = vsnprintf(end, std::min<size_t>(space, INT_MAX), format, pass);
  va_end(pass);
  return result;
}

} // namespace

ExpandBuffer* ExpandBuffer_new()
{
  return static_cast<ExpandBuffer*>(calloc(1, sizeof(ExpandBuffer)));
}

void ExpandBuffer_free(ExpandBuffer* buf)
{
  if (buf != nullptr)
  {
    free(buf->origin);
    free(buf);
  }
}

int ExpandBuffer_expand(ExpandBuffer* buf, unsigned int need)
{
  return buffer_expand(buf, need, Growth::Printed);
}

int ExpandBuffer_add(ExpandBuffer* buf, const void* data, unsigned int len)
{
  return buffer_add(buf, data, len, Growth::Printed);
}

void ExpandBuffer_Dec(ExpandBuffer* buf, unsigned int n)
{
  buffer_drain(buf, n);
}

unsigned int ExpandBuffer_remove(ExpandBuffer* buf, void* out, unsigned int n)
{
  return buffer_remove(buf, out, n);
}

int ExpandBuffer_read(ExpandBuffer* buf, int fd, int howmuch)
{
  return buffer_read(buf, fd, howmuch, Growth::Printed);
}

int ExpandBuffer_write(ExpandBuffer* buf, int fd)
{
  return buffer_write(buf, fd, UINT_MAX);
}

unsigned char* ExpandBuffer_find(ExpandBuffer* buf, const unsigned char* what, unsigned int len)
{
  return buffer_find(buf, what, len);
}

int ExpandBuffer_writefile(ExpandBuffer* buf, int fd, int n)
{
  return buffer_write(buf, fd, static_cast<unsigned int>(n));
}

int ExpandBuffer_readfile(ExpandBuffer* buf, int fd, int n)
{
  return ExpandBuffer_read(buf, fd, n);
}

int ExpandBuffer_add_vprintf(ExpandBuffer* buf, const char* format, va_list args)
{
  if (buf == nullptr || format == nullptr)
  {
    return -1;
  }
  // Even without this room a text that fits is appended, so the result does not matter.
  (void)ExpandBuffer_expand(buf, kFormatRoom);
  for (;;)
  {
    const uint32_t space = buf->totallen - buf->misalign - buf->length;
    const int result = format_into_space(buf, space, format, args);
    if (result < 0)
    {
      return -1;
    }
    const auto count = static_cast<unsigned int>(result);
    if (count < space)
    {
      buf->length += count;
      return result;
    }
    if (ExpandBuffer_expand(buf, count + 1) != 0)
    {
      return -1;
    }
  }
}

int ExpandBuffer_add_printf(ExpandBuffer* buf, const char* format, ...)
{
  va_list args;
  va_start(args, format);
  const int result = ExpandBuffer_add_vprintf(buf, format, args);
  va_end(args);
  return result;
}

int ExpandBuffer_add_buffer(ExpandBuffer* dst, ExpandBuffer* src)
{
  if (dst == nullptr || src == nullptr)
  {
    return -1;
  }
  if (dst == src)
  {
    return 0;
  }
  if (dst->length == 0)
  {
    std::swap(*dst, *src);
    return 0;
  }
  const int result = ExpandBuffer_add(dst, src->buffer, src->length);
  if (result == 0)
  {
    ExpandBuffer_Dec(src, src->length);
  }
  return result;
}

char* ExpandBuffer_readline(ExpandBuffer* buf)
{
  if (buf == nullptr || buf->length == 0)
  {
    return nullptr;
  }
  const uint32_t count = line_length(*buf);
  if (count == buf->length)
  {
    return nullptr;
  }
  char* line = static_cast<char*>(malloc(size_t{count} + 1));
  if (line == nullptr)
  {
    // The word __func__ stands in the message itself: device logs are searched for it.
    fprintf(stderr, "%s: out of memory\n", "__func__");
    ExpandBuffer_Dec(buf, count);
    return nullptr;
  }
  memcpy(line, buf->buffer, count);
  line[count] = '\0';

  const uint8_t* end = buf->buffer + count;
  const bool pair = count + 1 < buf->length && is_line_end(end[1]) && end[1] != end[0];
  ExpandBuffer_Dec(buf, count + (pair ? 2 : 1));
  return line;
}
