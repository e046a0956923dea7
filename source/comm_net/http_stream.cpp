#include "comm_net/http_stream.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace
{

ReadEnd why_short(FILE* in, const Deadline& patience)
{
  const bool failed = ferror(in) != 0;
  const int error = errno;
  clearerr(in);
  errno = error;
  if (!failed)
  {
    return ReadEnd::Closed;
  }
  if (error == EINTR)
  {
    return patience.LeftMs() == 0 ? ReadEnd::Silent : ReadEnd::Signal;
  }
  return error == EAGAIN || error == EWOULDBLOCK ? ReadEnd::Silent : ReadEnd::Error;
}

} // namespace

ReadEnd read_block(FILE* in, char* block, size_t size, const Deadline& patience, size_t* got)
{
  errno = 0;
  *got = fread(block, 1, size, in);
  if (*got == size)
  {
    return ReadEnd::Full;
  }
  // Bytes that came before a signal show that the peer was not silent, however long ago the block began.
  return why_short(in, *got > 0 ? Deadline(kHttpPatienceSec) : patience);
}

ReadEnd read_whole(FILE* in, char* block, size_t size)
{
  Deadline patience(kHttpPatienceSec);
  size_t done = 0;
  for (;;)
  {
    size_t got = 0;
    const ReadEnd end = read_block(in, block + done, size - done, patience, &got);
    if (end != ReadEnd::Signal)
    {
      return end;
    }
    done += got;
    if (got > 0)
    {
      patience = Deadline(kHttpPatienceSec);
    }
  }
}

size_t read_line(http_t* h)
{
  // Not fgets: interrupted by a signal, it loses the part of the line that it has read.
  size_t len = 0;
  int c = 0;
  while (len + 1 < sizeof h->buf && c != '\n')
  {
    Deadline patience(kHttpPatienceSec);
    ReadEnd end = ReadEnd::Full;
    while ((c = getc_unlocked(h->in)) == EOF && (end = why_short(h->in, patience)) == ReadEnd::Signal)
    {
    }
    if (c != EOF)
    {
      h->buf[len++] = static_cast<char>(c);
      continue;
    }
    len = end == ReadEnd::Closed ? len : 0;
    break;
  }
  h->buf[len] = '\0';
  return len;
}

bool is_cut(const http_t* h, size_t len)
{
  return len > 0 && h->buf[len - 1] != '\n';
}

const char* find_any_case(const char* text, const char* word)
{
  if (text == nullptr || word == nullptr || *word == '\0')
  {
    return nullptr;
  }
  const size_t len = strlen(word);
  for (; *text != '\0'; ++text)
  {
    if (strncasecmp(text, word, len) == 0)
    {
      return text;
    }
  }
  return nullptr;
}

bool number_at(const char* text, int base, long long* number)
{
  char* end = nullptr;
  *number = strtoll(text, &end, base);
  return end != text;
}
