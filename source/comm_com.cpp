#include "internal/relaxed.h"
#include "internal/serial_line.h"

#include <devcomm/serial_port.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <unistd.h>

SpeedPair SpeedArry[10] = {{B600, 600},     {B1200, 1200},    {B1800, 1800},   {B2400, 2400},
                           {B4800, 4800},   {B9600, 9600},    {B19200, 19200}, {B38400, 38400},
                           {B57600, 57600}, {B115200, 115200}};

namespace
{

constexpr int64_t kNanosecondsPerSecond = 1000000000;

// Device logs are searched by the line numbers of these messages.
constexpr int kLineNotOpen = 351;
constexpr int kLineReadCom = 439;
constexpr int kLineRead = 482;
constexpr int kLineWriteClosed = 561;
constexpr int kLineWriteWait = 573;
constexpr int kLineWriteTimeout = 579;

int report_error(const char* method, int line)
{
  printf("[ERR]%s:%d\n", method, line);
  return -1;
}

int64_t now()
{
  timespec t = {};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * kNanosecondsPerSecond + t.tv_nsec;
}

// Closes the stream with its descriptor, once. A Read in another thread holds the stream: then the
// stream is left to it, rather than waited for or freed under it.
int close_port(FILE* stream, int fd)
{
  if (ftrylockfile(stream) != 0)
    return close(fd);
  funlockfile(stream);
  return fclose(stream);
}

} // namespace

CCommCom::CCommCom()
    : m_fp(nullptr), m_fd(-1), m_bOpen(0), m_bLock(0), m_nBufLen(0), m_tvRead{0, 0}, m_tvWrite{0, 0},
      m_mutex()
{
  pthread_mutex_init(&m_mutex, nullptr);
}

CCommCom::~CCommCom()
{
  pthread_mutex_destroy(&m_mutex);
}

// After CloseCom m_fd is 0, which is somebody's standard input.
int CCommCom::Descriptor() const
{
  return relaxed_load(m_bOpen) == 1 ? relaxed_load(m_fd) : -1;
}

int CCommCom::OpenCom(char* device, int lock)
{
  if (device == nullptr)
    return -1;
  if (m_bOpen == 1)
    return 0;
  const int fd = open(device, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0)
  {
    printf("Open Com %s fail\n", device);
    return -1;
  }
  m_fp = fdopen(fd, "r+b");
  if (m_fp == nullptr)
  {
    close(fd);
    m_fd = -1;
    return -1;
  }
  m_bLock = lock;
  m_nBufLen = 0; // what another device sent is not this one's
  relaxed_store(m_fd, fd);
  relaxed_store(m_bOpen, 1);
  return 0;
}

void CCommCom::CloseCom()
{
  if (Descriptor() < 0)
    return;
  const bool lock = m_bLock != 0;
  if (lock)
    pthread_mutex_lock(&m_mutex);
  FILE* const stream = m_fp;
  const int fd = m_fd;
  // Before the number is free for somebody else's descriptor, which a Write would then go to.
  relaxed_store(m_bOpen, 0);
  relaxed_store(m_fd, 0); // not -1: callers rely on it
  m_fp = nullptr;
  if (close_port(stream, fd) != 0)
    puts("close Com fail");
  if (lock)
    pthread_mutex_unlock(&m_mutex);
}

int CCommCom::SetSpeed(int baud)
{
  speed_t speed = B115200;
  const auto* pair = std::find_if(std::begin(SpeedArry), std::end(SpeedArry),
                                  [baud](const SpeedPair& entry) { return entry.baud == baud; });
  if (pair != std::end(SpeedArry) && pair->speed != 0)
    speed = static_cast<speed_t>(pair->speed);
  return set_line_speed(Descriptor(), speed,
                        {"set speed error\n", "set output speed error\n", "tcsetattr fail\n"});
}

int CCommCom::SetProp(int dataBits, int stopBits, int parity, int flowCtrl)
{
  switch (set_frame_format(Descriptor(), dataBits, stopBits, parity, flowCtrl))
  {
  case FrameFault::GetSettings:
    return report_error("SetProp", 155);
  case FrameFault::DataBits:
    return report_error("SetProp", 175);
  case FrameFault::Parity:
    return report_error("SetProp", 206);
  case FrameFault::StopBits:
    return report_error("SetProp", 219);
  case FrameFault::SetSettings:
    return report_error("SetProp", 250);
  case FrameFault::None:
    break;
  }
  return 0;
}

int CCommCom::SetSelectProp(int sec, int usec, int which)
{
  (which == 1 ? m_tvWrite : m_tvRead) = {sec, usec};
  return 0;
}

int CCommCom::IOFlush()
{
  tcflush(Descriptor(), TCIOFLUSH);
  return 0;
}

int CCommCom::SyncSend()
{
  tcdrain(Descriptor());
  return 0;
}

int CCommCom::ClearRecv()
{
  tcflush(Descriptor(), TCIFLUSH);
  return 0;
}

int CCommCom::SetMode()
{
  const int fd = Descriptor();
  return set_raw_mode(fd, line_settings(fd), "set raw mode err");
}

// The raw mode comes last and takes back what it has an opinion on, the time between bytes among it: lines
// in the field run like that.
int CCommCom::SetModeEx()
{
  const int fd = Descriptor();
  termios settings = line_settings(fd);
  tcflush(fd, TCIOFLUSH);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB);
  settings.c_cflag |= CS8;
  settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
  tcflush(fd, TCIFLUSH);
  settings.c_cc[VTIME] = 128; // tenths of a second
  settings.c_cc[VMIN] = 1;
  return set_raw_mode(fd, settings, "set raw mode error");
}

// 1 ready, 0 time-out, -1 failed. An interrupted wait goes on for what is left of it, if it is to restart.
int CCommCom::WaitFor(short event, const Timeout& timeout, bool restart) const
{
  pollfd wait = {Descriptor(), event, 0};
  if (wait.fd < 0 || timeout.sec < 0 || timeout.usec < 0)
    return -1;
  int64_t left = timeout.sec * kNanosecondsPerSecond + timeout.usec * int64_t{1000};
  const int64_t end = left > 0 ? now() + left : 0;
  for (;;)
  {
    const timespec limit = {static_cast<time_t>(left / kNanosecondsPerSecond),
                            static_cast<long>(left % kNanosecondsPerSecond)};
    const int result = ppoll(&wait, 1, &limit, nullptr);
    if (result >= 0 || errno != EINTR || !restart)
      return (wait.revents & POLLNVAL) != 0 ? -1 : result;
    left = left > 0 ? std::max<int64_t>(0, end - now()) : 0;
  }
}

// Moves a line that fits and is complete out of the buffer. Of any other, what fits is copied and stays.
int CCommCom::TakeLine(char* line, int size, int* len)
{
  if (size < 2 || m_nBufLen < 1)
    return -1;
  const auto limit = static_cast<size_t>(std::min(size - 1, m_nBufLen));
  const void* end = memccpy(line, m_szBuf, '\n', limit);
  if (end == nullptr)
    return -1;
  const auto taken = static_cast<size_t>(static_cast<const char*>(end) - line);
  line[taken] = '\0';
  m_nBufLen -= static_cast<int32_t>(taken);
  memmove(m_szBuf, m_szBuf + taken, static_cast<size_t>(m_nBufLen));
  *len = static_cast<int>(taken);
  return *len;
}

int CCommCom::ReadComWithBuf(char* line, int size, int* len)
{
  if (len == nullptr)
    return -1;
  *len = 0;
  if (m_fd < 0)
  {
    fprintf(stderr, "%s[%d]:serial have not open!\n", __FILE__, kLineNotOpen);
    return -1;
  }
  if (line == nullptr)
    return -1;
  if (TakeLine(line, size, len) > 0)
    return *len;
  if (WaitFor(POLLIN, m_tvRead, true) != 1)
    return -1;
  const auto room = static_cast<int32_t>(sizeof m_szBuf);
  if (m_nBufLen == room)
    m_nBufLen = 0; // 512 bytes and no line that fits: they never will be one
  const ssize_t got = read(m_fd, m_szBuf + m_nBufLen, static_cast<size_t>(room - m_nBufLen));
  if (got > 0)
    m_nBufLen += static_cast<int32_t>(got);
  return TakeLine(line, size, len);
}

int CCommCom::ReadCom(char* buf, int size)
{
  if (m_fd < 0 || buf == nullptr || size <= 0)
  {
    printf("%s[%d]:serial m_fd:%d ReadBuffer:%p bufSize:%d\n", __FILE__, kLineReadCom, m_fd,
           static_cast<void*>(buf), size);
    return -1;
  }
  if (WaitFor(POLLIN, m_tvRead, true) != 1)
    return -1;
  return static_cast<int>(read(m_fd, buf, static_cast<size_t>(size - 1)));
}

int CCommCom::Read(char* buf, int size)
{
  if (m_fd < 0)
    return report_error("Read", kLineRead);
  if (buf == nullptr || size < 1 || WaitFor(POLLIN, m_tvRead, false) != 1)
    return -1;
  clearerr(m_fp); // a line that was silent once may speak again
  if (fgets(buf, size, m_fp) == nullptr)
    buf[0] = '\0'; // what fgets leaves then need not end
  return static_cast<int>(strlen(buf));
}

int CCommCom::IORead(void* buf, int size)
{
  if (WaitFor(POLLIN, m_tvRead, false) != 1)
    return -1;
  if (buf == nullptr || size < 0)
    return 0; // as for any other read that fails
  return static_cast<int>(std::max<ssize_t>(0, read(m_fd, buf, static_cast<size_t>(size))));
}

int CCommCom::Write(char* buf, int size)
{
  if (relaxed_load(m_fd) < 0)
    return report_error("Write", kLineWriteClosed);
  const int ready = WaitFor(POLLOUT, m_tvWrite, false);
  if (ready < 0)
    return report_error("Write", kLineWriteWait);
  if (ready == 0)
    return report_error("Write", kLineWriteTimeout);
  if (size < 0)
    return -1;
  pthread_mutex_lock(&m_mutex);
  const ssize_t written = write(Descriptor(), buf, static_cast<size_t>(size));
  pthread_mutex_unlock(&m_mutex);
  return static_cast<int>(written);
}

int CCommCom::GetPortFD()
{
  return m_fd;
}
