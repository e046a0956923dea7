#include "comm_net/http_body.h"

#include "comm_net/http_stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace
{

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

HttpBody::HttpBody(http_t* h, char* room, size_t roomSize) : m_h(h), m_room(room), m_roomSize(roomSize) {}

int HttpBody::Receive()
{
  if (m_h == nullptr)
  {
    return -1;
  }
  return m_h->chunked != 0 ? ReceiveChunks() : Read(m_h->content_length) < 0 ? -1 : 0;
}

int HttpBody::ReceiveChunks()
{
  if (m_h == nullptr || m_h->in == nullptr)
  {
    return -1;
  }
  int size = 0;
  do
  {
    if (!read_chunk_size(m_h, &size))
    {
      puts("bad chunk size");
      return -1;
    }
    if (Read(size) < 0 || !read_chunk_end(m_h, size == 0))
    {
      return -1;
    }
  } while (size != 0);
  return 0;
}

int HttpBody::Read(int len)
{
  if (len == 0)
  {
    return 0;
  }
  if (m_h == nullptr || m_h->in == nullptr || len < 0)
  {
    return -1;
  }
  Deadline patience(kHttpPatienceSec);
  for (int done = 0; done < len;)
  {
    const int want = std::min(len - done, static_cast<int>(sizeof m_h->buf));
    size_t got = 0;
    const ReadEnd end = read_block(m_h->in, m_h->buf, static_cast<size_t>(want), patience, &got);
    if (end != ReadEnd::Full && end != ReadEnd::Signal)
    {
      return give_up(end, got, len, done);
    }
    const int stored = static_cast<int>(got);
    printf("read len: %d\n", stored);
    if (Save(m_h->buf, stored) < 0)
    {
      return -1;
    }
    done += stored;
    m_h->recv_bytes += std::min(stored, INT32_MAX - m_h->recv_bytes);
    if (stored > 0)
    {
      patience = Deadline(kHttpPatienceSec);
    }
  }
  return len;
}

int HttpBody::Save(const char* data, int len)
{
  if (m_h == nullptr || m_h->save_path == nullptr || len < 0 || (data == nullptr && len > 0))
  {
    return -1;
  }
  if (m_h->out == nullptr && !OpenFile())
  {
    return -1;
  }
  const auto size = static_cast<size_t>(len);
  // After a signal the whole block is written once more. No signal interrupts writing to a disk.
  for (errno = 0; size > 0 && fwrite(data, 1, size, m_h->out) != size; errno = 0)
  {
    if (errno != EINTR)
    {
      printf("fwrite error: %s\n", strerror(errno));
      return -1;
    }
    clearerr(m_h->out);
  }
  return len;
}

bool HttpBody::OpenFile()
{
  m_h->out = fopen(m_h->save_path, "a+e");
  if (m_h->out == nullptr)
  {
    printf("fopen %s error: %s\n", m_h->save_path, strerror(errno));
    return false;
  }
  if (m_room != nullptr)
  {
    setvbuf(m_h->out, m_room, _IOFBF, m_roomSize);
  }
  return true;
}

int recv_response(http_t* h)
{
  return HttpBody(h).Receive();
}

int recv_chunked_response(http_t* h)
{
  return HttpBody(h).ReceiveChunks();
}

int read_data(http_t* h, int len)
{
  return HttpBody(h).Read(len);
}

int save_data(http_t* h, const char* data, int len)
{
  return HttpBody(h).Save(data, len);
}
