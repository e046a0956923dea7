#include "devcomm/icmp.h"

#include "comm_net/icmp_packet.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kAttempts = 2;
constexpr int kReplyTimeoutMs = 2000;

} // namespace

CICMP::CICMP() : m_dest{}, m_sendTime{}, m_sock(0), m_pid(getpid()), m_sendBuf{}, m_recvBuf{} {}

CICMP::~CICMP()
{
  m_dest = {};
}

int CICMP::NetIsOk(const char* host)
{
  if (find_host(host, &m_dest) != 0)
  {
    perror("gethostbyname error");
    return 0;
  }
  m_sock = open_raw_socket();
  if (m_sock < 0)
  {
    m_sock = 0;
    puts("[NetStatus]  error : socket");
    return 0;
  }
  if (fcntl(m_sock, F_GETFL, 0) < 0)
  {
    puts("[NetStatus]  error : fcntl(sockfd,F_GETFL,0)");
    _CloseSocket();
    return 0;
  }
  // The flags it had are replaced, not added to; callers rely on it.
  if (fcntl(m_sock, F_SETFL, O_NONBLOCK) < 0)
  {
    puts("[NetStatus]  error : fcntl(sockfd,F_SETFL,iFlag )");
    _CloseSocket();
    return 0;
  }
  m_pid = getpid();
  int answered = 0;
  for (int seq = 0; seq < kAttempts && answered == 0; ++seq)
  {
    if (send_packet(seq, m_sendBuf) != 1)
    {
      puts("[NetStatus]  error : send_packet");
      break;
    }
    answered = recv_packet(seq, m_recvBuf) == 1 ? 1 : 0;
  }
  _CloseSocket();
  return answered;
}

int CICMP::pack(int seq, char* buf)
{
  return pack_request(buf, m_pid, static_cast<unsigned int>(seq));
}

int CICMP::send_packet(int seq, char* buf)
{
  const int len = pack(seq, buf);
  gettimeofday(&m_sendTime, nullptr);
  if (len < 0 || m_sock == 0 ||
      sendto(m_sock, buf, static_cast<size_t>(len), 0, reinterpret_cast<const sockaddr*>(&m_dest),
             sizeof m_dest) < 0)
  {
    puts("[NetStatus]  error : sendto error");
    return -1;
  }
  return 1;
}

int CICMP::recv_packet(int seq, char* buf)
{
  if (buf == nullptr || m_sock == 0 || wait_for_packet(m_sock, m_pid, m_dest.sin_addr, kReplyTimeoutMs) <= 0)
  {
    return -1;
  }
  const ssize_t got = recvfrom(m_sock, buf, sizeof m_recvBuf, 0, nullptr, nullptr);
  if (got < 0)
  {
    if (errno == EINTR)
    {
      return -1;
    }
    perror("recvfrom error");
    return -2;
  }
  return unpack(seq, buf, static_cast<int>(got)) == 0 ? 1 : -1;
}

int CICMP::unpack(int seq, char* buf, int len)
{
  const EchoView echo = view_packet(buf, len);
  return is_reply_to(echo, m_pid) && echo.sequence == static_cast<uint16_t>(seq) ? 0 : -1;
}

unsigned short CICMP::cal_chksum(unsigned short* buf, int len)
{
  return internet_checksum(buf, len);
}

void CICMP::tv_sub(timeval* out, timeval* in)
{
  subtract_time(out, in);
}

void CICMP::timeout()
{
  puts("Request Timed Out");
}

void CICMP::_CloseSocket()
{
  if (m_sock > 0)
  {
    close(m_sock);
  }
  m_sock = 0;
}
