#include "comm_net/http_stream.h"

#include <devcomm/http_download.h>

#include <cstring>

namespace
{

int bad_head()
{
  puts("bad http head");
  return -1;
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
