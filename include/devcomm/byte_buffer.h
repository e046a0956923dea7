#pragma once

/// @file
/// A growable first-in-first-out byte buffer: append at the back, consume from the front, read and write
/// descriptors without a copy in between. It comes as a class, SimpleBufMng, and as a record with plain
/// functions, ExpandBuffer; both work alike, but the record form prints a line whenever it reallocates.
///
///     SimpleBufMng queue;
///     queue.Add("PING\n", 5);
///     queue.Write(sock);  // drops what the socket took
///
/// Room grows by doubling from 256 bytes up to 2 GiB; the consumed front is reclaimed when room is needed,
/// and at once when the buffer runs empty. Growing is all that can fail for want of memory: -1, and the data
/// is kept. Every pointer into the data lives until the next call that changes the buffer.
///
/// A buffer is not locked: threads that share one lock around it. Null records are refused (-1, 0 or null).

#include <devcomm/export.h>

#include <cstdarg>
#include <cstdint>

struct sockaddr_in;

/// The record of a byte buffer. Fields may be read; the functions keep buffer == origin + misalign and
/// misalign + length <= totallen.
struct ExpandBuffer
{
  uint8_t* buffer;   ///< the data
  uint8_t* origin;   ///< the storage; null until the first growth
  uint32_t misalign; ///< bytes from origin to buffer: consumed and not yet reclaimed
  uint32_t totallen; ///< bytes of storage
  uint32_t length;   ///< bytes of data
};

/// A byte buffer that its owner makes with new and destroys through the virtual destructor.
class DEVCOMM_API SimpleBufMng
{
public:
  SimpleBufMng();
  virtual ~SimpleBufMng();
  SimpleBufMng(const SimpleBufMng&) = delete;
  SimpleBufMng& operator=(const SimpleBufMng&) = delete;

  /// Makes room for need bytes after the data, moving it to the front or reallocating.
  /// @return 0, or -1: no memory, or more than 2 GiB
  int Expand(unsigned int need);

  /// Appends len bytes, which may lie in this buffer itself.
  /// @return 0, or -1 and nothing is appended; null data with a length is refused so
  int Add(const void* data, unsigned int len);

  /// Drops n bytes, at most all, from the front.
  void Drain(unsigned int n);

  /// Moves bytes from the front to out.
  /// @return bytes moved: n, or fewer when the buffer holds fewer; 0 for a null out
  unsigned int Remove(void* out, unsigned int n);

  /// Appends what one read of fd gives.
  /// @param howmuch  bytes at most, as an unsigned number and at most 4096: -1 asks for 4096
  /// @return bytes read; 0 at the end of file; -1 when read or growing failed, errno tells
  int Read(int fd, int howmuch);

  /// As Read, with one datagram, cut to the count.
  /// @param from  receives the sender's address (16 bytes) when bytes came; may be null
  int UdpRead(int sock, int howmuch, sockaddr_in* from);

  /// Writes all the data to fd, a socket or a file, by one call, and drops what was taken.
  /// @return bytes taken; 0 or -1 as the call gave it, errno tells and the data stays. No SIGPIPE is raised
  int Write(int fd);

  /// Sends all the data as a single datagram, however many appends it came from, and drops it.
  /// @param to  IPv4 address (16 bytes); null sends to the peer of a connected socket
  /// @return as Write
  int UdpWrite(int sock, sockaddr_in* to);

  /// Searches the data.
  /// @return the first place where the len bytes of what stand complete, or null; null for len 0
  unsigned char* Find(const unsigned char* what, unsigned int len);

  /// As Write, with at most n bytes, as an unsigned number: -1 writes all.
  int Writefile(int fd, int n);

  /// Same as Read.
  int Readfile(int fd, int n);

  /// @return bytes of data
  unsigned int Length() const;

  /// @return the data, Length() bytes; null before the first growth
  unsigned char* Buffer() const;

private:
  ExpandBuffer* m_buf; // null when memory ran out in the constructor: then everything is refused
};

/// Makes an empty buffer. @return a record for ExpandBuffer_free, or null: no memory
DEVCOMM_API ExpandBuffer* ExpandBuffer_new();

/// Frees the storage and the record; null does nothing.
DEVCOMM_API void ExpandBuffer_free(ExpandBuffer* buf);

/// As SimpleBufMng::Expand. Each reallocation, also within other functions, prints
/// "buf ptr=0x%x, buf->totallen =%ld , length=%ld, need=%ld\n" on standard output: the record's address, the
/// old and the new size of the storage, and the bytes asked of it.
DEVCOMM_API int ExpandBuffer_expand(ExpandBuffer* buf, unsigned int need);

/// As SimpleBufMng::Add.
DEVCOMM_API int ExpandBuffer_add(ExpandBuffer* buf, const void* data, unsigned int len);

/// As SimpleBufMng::Drain.
DEVCOMM_API void ExpandBuffer_Dec(ExpandBuffer* buf, unsigned int n);

/// As SimpleBufMng::Remove.
DEVCOMM_API unsigned int ExpandBuffer_remove(ExpandBuffer* buf, void* out, unsigned int n);

/// As SimpleBufMng::Read.
DEVCOMM_API int ExpandBuffer_read(ExpandBuffer* buf, int fd, int howmuch);

/// As SimpleBufMng::Write.
DEVCOMM_API int ExpandBuffer_write(ExpandBuffer* buf, int fd);

/// As SimpleBufMng::Find.
DEVCOMM_API unsigned char* ExpandBuffer_find(ExpandBuffer* buf, const unsigned char* what, unsigned int len);

/// As SimpleBufMng::Writefile.
DEVCOMM_API int ExpandBuffer_writefile(ExpandBuffer* buf, int fd, int n);

/// As SimpleBufMng::Readfile.
DEVCOMM_API int ExpandBuffer_readfile(ExpandBuffer* buf, int fd, int n);

/// Appends formatted text without its NUL. The arguments must not point into the buffer.
/// @return bytes appended; -1 when formatting or growing failed
DEVCOMM_API int ExpandBuffer_add_vprintf(ExpandBuffer* buf, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));

/// As ExpandBuffer_add_vprintf.
DEVCOMM_API int ExpandBuffer_add_printf(ExpandBuffer* buf, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/// Moves all the data of src to the back of dst; an empty dst exchanges storages with src instead of copying.
/// @return 0, or -1 and both keep their data. The same buffer twice is left as it is
DEVCOMM_API int ExpandBuffer_add_buffer(ExpandBuffer* dst, ExpandBuffer* src);

/// Takes the first line off the buffer. CR, LF, CR LF and LF CR end a line.
/// @return the line without its end, for the caller to free(); null when no line is complete, then nothing
///         is consumed. Out of memory: "__func__: out of memory\n" on standard error, the line's bytes are
///         dropped and its end stays, and null
///
/// A line that holds a NUL byte reads as cut there.
DEVCOMM_API char* ExpandBuffer_readline(ExpandBuffer* buf);
