#include "comm_server_client/byte_buffer_core.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>

SimpleBufMng::SimpleBufMng() : m_buf(ExpandBuffer_new()) {}

SimpleBufMng::~SimpleBufMng()
{
  ExpandBuffer_free(m_buf);
}

int SimpleBufMng::Expand(unsigned int need)
{
  return buffer_expand(m_buf, need, Growth::Silent);
}

int SimpleBufMng::Add(const void* data, unsigned int len)
{
  return buffer_add(m_buf, data, len, Growth::Silent);
}

void SimpleBufMng::Drain(unsigned int n)
{
  buffer_drain(m_buf, n);
}

unsigned int SimpleBufMng::Remove(void* out, unsigned int n)
{
  return buffer_remove(m_buf, out, n);
}

int SimpleBufMng::Read(int fd, int howmuch)
{
  return buffer_read(m_buf, fd, howmuch, Growth::Silent);
}

int SimpleBufMng::UdpRead(int sock, int howmuch, sockaddr_in* from)
{
  unsigned int room = 0;
  if (buffer_read_room(m_buf, howmuch, Growth::Silent, &room) != 0)
  {
    return -1;
  }
  sockaddr_storage sender{};
  socklen_t senderLen = sizeof sender;
  const ssize_t got = recvfrom(sock, m_buf->buffer + m_buf->length, room, 0,
                               reinterpret_cast<sockaddr*>(&sender), &senderLen);
  if (got > 0)
  {
    m_buf->length += static_cast<uint32_t>(got);
    if (from != nullptr)
    {
      memcpy(from, &sender, sizeof *from);
    }
  }
  return static_cast<int>(got);
}

int SimpleBufMng::Write(int fd)
{
  return buffer_write(m_buf, fd, UINT_MAX);
}

int SimpleBufMng::UdpWrite(int sock, sockaddr_in* to)
{
  if (m_buf == nullptr)
  {
    errno = EINVAL;
    return -1;
  }
  const ssize_t sent = sendto(sock, m_buf->buffer, m_buf->length, MSG_NOSIGNAL,
                              reinterpret_cast<sockaddr*>(to), to == nullptr ? 0 : sizeof *to);
  if (sent > 0)
  {
    buffer_drain(m_buf, static_cast<unsigned int>(sent));
  }
  return static_cast<int>(sent);
}

unsigned char* SimpleBufMng::Find(const unsigned char* what, unsigned int len)
{
  return buffer_find(m_buf, what, len);
}

int SimpleBufMng::Writefile(int fd, int n)
{
  return buffer_write(m_buf, fd, static_cast<unsigned int>(n));
}

int SimpleBufMng::Readfile(int fd, int n)
{
  return Read(fd, n);
}

unsigned int SimpleBufMng::Length() const
{
  return m_buf == nullptr ? 0 : m_buf->length;
}

unsigned char* SimpleBufMng::Buffer() const
{
  return m_buf == nullptr ? nullptr : m_buf->buffer;
}
