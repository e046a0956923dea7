#include "comm_net/http_stream.h"

#include <devcomm/http_download.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr size_t kMostHead = 1 << 20; // bytes; no server means well that sends more

int bad_head()
{
  puts("bad http head");
  return -1;
}

/// A number at the begin of a text, after blanks, cut to the range of long long. @return whether there is one
bool number_at(const char* text, int base, long long* number)
{
  char* end = nullptr;
  *number = strtoll(text, &end, base);
  return end != text;
}

bool is_int(long long number)
{
  return number >= INT32_MIN && number <= INT32_MAX;
}

/// A line's value: one blank is taken for granted after the colon; callers rely on it.
const char* value_of(const char* line)
{
  const char* colon = strchr(line, ':');
  return colon == nullptr || colon[1] == '\0' ? "" : colon + 2;
}

bool take_length(http_t* h)
{
  long long length = 0;
  if (!number_at(value_of(h->buf), 10, &length))
  {
    // Another field may mention the name. The field itself without a number would pass for an empty body.
    return find_any_case(h->buf, "Content-length") != h->buf;
  }
  if (!is_int(length))
  {
    return false;
  }
  h->content_length = static_cast<int32_t>(length);
  printf("Content-length: %d\n", h->content_length);
  return true;
}

bool take_status(http_t* h)
{
  const char* blank = strchr(h->buf, ' ');
  if (blank == nullptr || find_any_case(h->buf, "HTTP") == nullptr)
  {
    return false;
  }
  long long status = 0;
  number_at(blank + 1, 10, &status);
  h->status = is_int(status) ? static_cast<int32_t>(status) : 0;
  printf("http status code: %d\n", h->status);
  return true;
}

/// Takes what one header line tells. @return 0 or -1
int take_field(http_t* h)
{
  if (find_any_case(h->buf, "Content-length") != nullptr)
  {
    return take_length(h) ? 0 : bad_head();
  }
  if (find_any_case(h->buf, "Transfer-Encoding") != nullptr)
  {
    if (find_any_case(h->buf, "chunked") == nullptr)
    {
      printf("Not support %s", h->buf);
      return -1;
    }
    h->chunked = 1;
    printf("%s", h->buf);
  }
  else if (find_any_case(h->buf, "Location") != nullptr)
  {
    snprintf(h->location, sizeof h->location, "%.*s", static_cast<int>(sizeof h->location) - 1,
             value_of(h->buf));
    printf("Location: %s\n", h->location);
  }
  return 0;
}

/// Reads the line before a chunk, to its end; what follows the number does not count.
bool read_chunk_size(http_t* h, int* size)
{
  size_t len = read_line(h);
  long long number = 0;
  const bool good = len > 0 && number_at(h->buf, 16, &number) && number >= 0 && is_int(number);
  if (len > 0)
  {
    printf("part len: %ld\n", static_cast<long>(std::clamp<long long>(number, LONG_MIN, LONG_MAX)));
  }
  for (size_t total = len; good && is_cut(h, len); total += len)
  {
    len = read_line(h);
    if (len == 0 || total > kMostHead)
    {
      return false;
    }
  }
  *size = static_cast<int>(number);
  return good;
}

/// Reads the two bytes after a chunk. Only after the last one they may be other than a line end: the begin
/// of a trailer.
bool read_chunk_end(http_t* h, bool last)
{
  char end[2];
  bool good = read_whole(h->in, end, sizeof end) == ReadEnd::Full;
  if (good && !last && memcmp(end, "\r\n", sizeof end) != 0)
  {
    errno = EBADMSG; // the size lied
    good = false;
  }
  if (!good)
  {
    printf("fread \\r\\n error : %s\n", strerror(errno));
  }
  return good;
}

/// Tells why a block came short. @param done  bytes stored before it
int give_up(ReadEnd end, size_t got, int len, int done)
{
  if (end == ReadEnd::Error)
  {
    printf("fread error: %s\n", strerror(errno));
  }
  else
  {
    if (end == ReadEnd::Closed)
    {
      puts("socket closed by peer");
    }
    else
    {
      printf("socket recvice timeout: %dms\n", kHttpPatienceSec * 1000);
    }
    printf("read len: %d\n", static_cast<int>(got));
  }
  printf("we need to read %d bytes, but read %d bytes now\n", len, done);
  return -1;
}

} // namespace

int parse_http_header(http_t* h)
{
  if (h == nullptr || h->in == nullptr)
  {
    return -1;
  }
  size_t len = read_line(h);
  if (len == 0 || !take_status(h))
  {
    return bad_head();
  }
  for (size_t total = len; total <= kMostHead; total += len)
  {
    // The rest of a line that is too long is no line: it neither ends the head nor tells anything.
    const bool isRest = is_cut(h, len);
    len = read_line(h);
    if (len == 0)
    {
      break;
    }
    if (!isRest && strcmp(h->buf, "\r\n") == 0)
    {
      return 0;
    }
    printf("%s", h->buf);
    if (!isRest && take_field(h) != 0)
    {
      return -1;
    }
  }
  return bad_head();
}

int recv_response(http_t* h)
{
  if (h == nullptr)
  {
    return -1;
  }
  return h->chunked != 0 ? recv_chunked_response(h) : read_data(h, h->content_length) < 0 ? -1 : 0;
}

int recv_chunked_response(http_t* h)
{
  if (h == nullptr || h->in == nullptr)
  {
    return -1;
  }
  int size = 0;
  do
  {
    if (!read_chunk_size(h, &size))
    {
      puts("bad chunk size");
      return -1;
    }
    if (read_data(h, size) < 0 || !read_chunk_end(h, size == 0))
    {
      return -1;
    }
  } while (size != 0);
  return 0;
}

int read_data(http_t* h, int len)
{
  if (len == 0)
  {
    return 0;
  }
  if (h == nullptr || h->in == nullptr || len < 0)
  {
    return -1;
  }
  Patience patience;
  for (int done = 0; done < len;)
  {
    const int want = std::min(len - done, static_cast<int>(sizeof h->buf));
    size_t got = 0;
    const ReadEnd end = read_block(h->in, h->buf, static_cast<size_t>(want), patience, &got);
    if (end != ReadEnd::Full && end != ReadEnd::Signal)
    {
      return give_up(end, got, len, done);
    }
    const int stored = static_cast<int>(got);
    printf("read len: %d\n", stored);
    if (save_data(h, h->buf, stored) < 0)
    {
      return -1;
    }
    done += stored;
    h->recv_bytes += std::min(stored, INT32_MAX - h->recv_bytes);
    if (stored > 0)
    {
      patience = Patience();
    }
  }
  return len;
}

int save_data(http_t* h, const char* data, int len)
{
  if (h == nullptr || h->save_path == nullptr || len < 0 || (data == nullptr && len > 0))
  {
    return -1;
  }
  if (h->out == nullptr && (h->out = fopen(h->save_path, "a+e")) == nullptr)
  {
    printf("fopen %s error: %s\n", h->save_path, strerror(errno));
    return -1;
  }
  const auto size = static_cast<size_t>(len);
  // After a signal the whole block is written once more. No signal interrupts writing to a disk.
  for (errno = 0; size > 0 && fwrite(data, 1, size, h->out) != size; errno = 0)
  {
    if (errno != EINTR)
    {
      printf("fwrite error: %s\n", strerror(errno));
      return -1;
    }
    clearerr(h->out);
  }
  return len;
}
