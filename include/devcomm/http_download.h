#pragma once

#include <devcomm/export.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

/// @file
/// Downloads one resource over plain HTTP/1.1 into a local file, going on where an earlier call stopped.
///
///     char url[] = "http://192.168.1.20:8080/firmware.bin";
///     char path[] = "/mnt/sd/firmware.bin";
///     while (http_download(url, path) != 0)
///     {
///       sleep(10); // the part that came stays in the file; the next call asks for the rest
///     }
///
/// http_download is all that most callers need; the steps it is made of follow it. Everything blocks the
/// caller's thread and tells its progress and its failures on standard output. Calls share no state: any
/// number of threads may download at once, each into a file of its own. Every function accepts null
/// pointers and answers them with its failure. Signals end no call.

/// One download under way: allocated zeroed by http_download, released by clean_up.
struct http_t
{
  int32_t sock;           ///< the connected socket, -1: none. Once in is set it belongs to in
  FILE* in;               ///< the socket as a stream for reading
  char host[256];         ///< name or dotted address, cut to 255 characters
  int32_t port;           ///< host byte order
  char uri[2048];         ///< from the first "/" on, cut to 2047 characters
  char buf[8192];         ///< the request, then one header line or one block of the body at a time
  int32_t status;         ///< the response's status code
  int32_t chunked;        ///< 1: the body comes in chunks
  int32_t content_length; ///< bytes of a body that does not come in chunks
  char location[2048];    ///< where a redirect points to, with its line end, cut to 2047 characters
  const char* save_path;  ///< the caller's text, not copied
  FILE* out;              ///< the file, from the first data on
  int32_t recv_bytes;     ///< body bytes written; stays at its largest value beyond 2 GiB
  time_t start_time;      ///< seconds, when the body began
  time_t end_time;        ///< seconds, when the body was complete
};

/// Downloads a resource, appending to the file what it does not hold yet (RFC 9110, RFC 9112).
///
/// The request always carries a range that begins at the file's length, also at 0. A server that ignores
/// ranges and sends the whole with status 200 gets the whole appended; callers rely on it. Status 302 is
/// followed, each time on a new connection, without a limit on the number: a ring of redirects goes on until
/// a server in it refuses or fails. Every other status but 200 and 206 is a failure.
///
/// @param url        [http://]host[:port]/path; see parser_URL
/// @param save_path  created with the first byte of the body; untouched when there is none
/// @return 0 when the whole body is in the file, -1 otherwise. What came before a failure stays in the file,
///         up to the last whole block of 8192 bytes, and is not asked for again
///
/// Connecting, sending and each wait for data end after 10 seconds, a head after 1 MiB; a server that keeps
/// a few bytes coming keeps the call going. Looking up a name takes as long as the resolver does.
DEVCOMM_API int http_download(char* url, char* save_path);

// The steps ------------------------------------------------------------------------------------------------

/// Takes an address apart into host, port and uri.
///
/// @param url  where "http://" occurs in it, in any case and at any place, its first 7 characters are
///             skipped. A path, at least "/", must follow the host. The port is 80, or 1 to 65534 after a
///             colon: 65535 is refused; callers rely on it
/// @return 0, or -1
DEVCOMM_API int parser_URL(char* url, http_t* h);

/// Looks up a host. @return its first IPv4 address in network byte order, or -1
DEVCOMM_API int dns(const char* name);

/// Limits sending (connecting too) and each receiving on a socket to 10 seconds. @return 0 or -1
DEVCOMM_API int set_socket_option(int fd);

/// Connects to host and port. @return 0, with sock set, or -1
DEVCOMM_API int connect_server(http_t* h);

/// Sends the request for uri, from the present length of the file on, in one piece.
///
/// @return bytes sent, which a failing peer may leave short of the request, or -1
DEVCOMM_API int send_request(http_t* h);

/// Reads the head of the response up to its empty line.
///
/// The names of header fields are looked for anywhere in a line, and a value begins two characters after the
/// first colon; callers rely on both. A line longer than 8191 bytes counts up to there.
///
/// @return 0, with status, chunked, content_length and location set as the lines told; -1 for a head that is
///         none, ends early, is larger than 1 MiB, gives a length that is no number or above 2 GiB, or a
///         transfer coding other than chunked
DEVCOMM_API int parse_http_header(http_t* h);

/// Reads the body as the head announced it. Without chunks and without a length it stores nothing.
/// @return 0 or -1
DEVCOMM_API int recv_response(http_t* h);

/// Reads a body of chunks up to the last one, of size 0, and the two bytes after it; trailers stay unread.
///
/// @return 0; -1 also for a size that is negative, no number or above 2 GiB, and for a chunk that no line
///         end follows
DEVCOMM_API int recv_chunked_response(http_t* h);

/// Reads part of the body and writes it to the file, in blocks of 8192 bytes and a last one.
///
/// A block that comes short because the peer closed, failed or kept silent for 10 seconds is not written.
///
/// @param len  bytes; 0 does nothing and succeeds
/// @return len, or -1, also for a negative len
DEVCOMM_API int read_data(http_t* h, int len);

/// Appends to the file, which the first call opens. What was appended is in the file once out is closed.
///
/// @param len  bytes; 0 only opens the file
/// @return len, or -1, also for a negative len
DEVCOMM_API int save_data(http_t* h, const char* data, int len);

/// @return received bytes per second between start_time and end_time; of equal times, per one second
DEVCOMM_API float calc_download_speed(http_t* h);

/// Closes what is open and frees the record.
DEVCOMM_API void clean_up(http_t* h);

// Beside it ------------------------------------------------------------------------------------------------

/// Finds a word in a text, ASCII letters of either case alike.
///
/// @return the first place in text, or null, also for an empty text or word
DEVCOMM_API char* strncasestr(char* text, char* word);

/// What WriteGetDataCallback appends to.
struct http_text_t
{
  char* text;    ///< from malloc, or null; grows, is always terminated, and is the caller's to free
  size_t length; ///< bytes before the terminating NUL
};

/// Gathers a reply in memory, in the usual shape of a transfer library's write callback.
///
/// @param data  size x count bytes, copied
/// @param sink  http_text_t
/// @return size x count; 0 when memory ran out, and then the text is as it was
DEVCOMM_API size_t WriteGetDataCallback(void* data, size_t size, size_t count, void* sink);

/// A placeholder for looking up the address of a position: writes nothing. @return -1
DEVCOMM_API int BdGetAddress(double longitude, double latitude, char* out, int out_len, unsigned int flags);
