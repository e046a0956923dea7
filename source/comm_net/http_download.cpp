#include "devcomm/http_download.h"

#include "comm_net/http_body.h"
#include "comm_net/http_stream.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace
{

/// The record, and room for its streams to move more than a block at a time.
struct Download
{
  http_t record;
  char inRoom[65536];
  char outRoom[65536];
};

enum class Outcome
{
  Stored,
  Failed,
  Redirected
};

http_t* new_download(const char* save_path)
{
  auto* download = static_cast<Download*>(calloc(1, sizeof(Download)));
  if (download == nullptr)
  {
    puts("malloc failed");
    return nullptr;
  }
  download->record.sock = -1;
  download->record.save_path = save_path;
  return &download->record;
}

/// The room around a record from new_download.
Download* room_of(http_t* h)
{
  return reinterpret_cast<Download*>(h);
}

bool open_stream(http_t* h)
{
  h->in = fdopen(h->sock, "r");
  if (h->in == nullptr)
  {
    puts("fdopen error");
    return false;
  }
  setvbuf(h->in, room_of(h)->inRoom, _IOFBF, sizeof Download::inRoom);
  return true;
}

/// Brings what the stream still holds into the file, while a full disk can still be told.
bool close_file(http_t* h)
{
  FILE* out = h->out;
  h->out = nullptr;
  if (out != nullptr && fclose(out) != 0)
  {
    printf("fwrite error: %s\n", strerror(errno));
    return false;
  }
  return true;
}

Outcome store_body(http_t* h)
{
  puts("recv data now");
  h->start_time = time(nullptr);
  if (HttpBody(h, room_of(h)->outRoom, sizeof Download::outRoom).Receive() != 0 || !close_file(h))
  {
    return Outcome::Failed;
  }
  h->end_time = time(nullptr);
  printf("recv %d bytes\n", h->recv_bytes);
  printf("Average download speed: %.2fKB/s\n", static_cast<double>(calc_download_speed(h) / 1000));
  return Outcome::Stored;
}

Outcome fetch(http_t* h, char* url)
{
  if (parser_URL(url, h) != 0 || connect_server(h) != 0 || send_request(h) < 0 || !open_stream(h) ||
      parse_http_header(h) != 0)
  {
    return Outcome::Failed;
  }
  switch (h->status)
  {
  case 200:
  case 206:
    return store_body(h);
  case 302:
    printf("redirect: %s\n", h->location);
    return Outcome::Redirected;
  case 404:
    puts("Page not found");
    return Outcome::Failed;
  default:
    printf("Not supported http code %d\n", h->status);
    return Outcome::Failed;
  }
}

} // namespace

int http_download(char* url, char* save_path)
{
  if (url == nullptr || save_path == nullptr)
  {
    return -1;
  }
  char redirect[sizeof http_t::location];
  for (char* from = url;; from = redirect)
  {
    http_t* h = new_download(save_path);
    if (h == nullptr)
    {
      return -1;
    }
    const Outcome outcome = fetch(h, from);
    memcpy(redirect, h->location, sizeof redirect);
    redirect[strcspn(redirect, "\r\n")] = '\0'; // else the line end would break the next request apart
    clean_up(h);
    if (outcome != Outcome::Redirected)
    {
      return outcome == Outcome::Stored ? 0 : -1;
    }
  }
}

float calc_download_speed(http_t* h)
{
  if (h == nullptr)
  {
    return 0;
  }
  const time_t seconds = h->end_time - h->start_time;
  return static_cast<float>(h->recv_bytes) / static_cast<float>(seconds == 0 ? 1 : seconds);
}

void clean_up(http_t* h)
{
  if (h == nullptr)
  {
    return;
  }
  if (h->in != nullptr)
  {
    if (fileno(h->in) == h->sock)
    {
      h->sock = -1; // closed with its stream
    }
    fclose(h->in);
  }
  if (h->sock != -1)
  {
    close(h->sock);
  }
  if (h->out != nullptr)
  {
    fclose(h->out);
  }
  free(h);
}

char* strncasestr(char* text, char* word)
{
  return const_cast<char*>(find_any_case(text, word));
}

size_t WriteGetDataCallback(void* data, size_t size, size_t count, void* sink)
{
  auto* gathered = static_cast<http_text_t*>(sink);
  size_t bytes = 0;
  size_t room = 0;
  if (gathered == nullptr || (data == nullptr && size > 0 && count > 0))
  {
    return 0;
  }
  const bool tooMuch = __builtin_mul_overflow(size, count, &bytes) ||
                       __builtin_add_overflow(gathered->length, bytes, &room) || room == SIZE_MAX;
  char* grown = tooMuch ? nullptr : static_cast<char*>(realloc(gathered->text, room + 1));
  if (grown == nullptr)
  {
    puts("not enough memory (realloc returned NULL)");
    return 0;
  }
  if (data != nullptr)
  {
    memcpy(grown + gathered->length, data, bytes);
  }
  grown[room] = '\0';
  gathered->text = grown;
  gathered->length = room;
  return bytes;
}

int BdGetAddress(double /*longitude*/, double /*latitude*/, char* /*out*/, int /*out_len*/,
                 unsigned int /*flags*/)
{
  return -1;
}
