#include "internal/assert_report.h"
#include "internal/serial_line.h"

#include <devcomm/serial_port.h>

#include <fcntl.h>
#include <unistd.h>

namespace
{

// Not the table of CCommCom: this one has 300 and 230400 and lacks 1800, as its callers expect.
constexpr SpeedPair kSpeeds[] = {{B300, 300},     {B600, 600},       {B1200, 1200},    {B2400, 2400},
                                 {B4800, 4800},   {B9600, 9600},     {B19200, 19200},  {B38400, 38400},
                                 {B57600, 57600}, {B115200, 115200}, {B230400, 230400}};
constexpr int kLargestTransfer = 0x100000;

// Device logs are searched by the line numbers of these reports.
constexpr int kLineSpeed = 35;
constexpr int kLineOpen = 201;
constexpr int kLineClose = 212;
constexpr int kLineRead = 226;
constexpr int kLineWriteArguments = 240;
constexpr int kLineWrite = 247;

void warn(int line)
{
  assert_report(AssertLevel::Warning, __FILE__, line);
}

bool is_transfer(int fd, const void* buf, int len)
{
  return buf != nullptr && fd >= 1 && len >= 1 && len <= kLargestTransfer;
}

} // namespace

int SetComSpeed(int fd, unsigned int baud)
{
  for (const SpeedPair& pair : kSpeeds)
  {
    if (static_cast<unsigned>(pair.baud) == baud)
      return set_line_speed(fd, static_cast<speed_t>(pair.speed),
                            {"set input speed error!\n", "set output speed error!\n", "tcsetattr fd1"});
  }
  warn(kLineSpeed);
  return -1;
}

int SetComParity(int fd, int dataBits, int stopBits, int parity, int flowCtrl)
{
  switch (set_frame_format(fd, dataBits, stopBits, parity, flowCtrl))
  {
  case FrameFault::None:
    return 0;
  case FrameFault::GetSettings:
    printf("SetComParity 1");
    break;
  case FrameFault::DataBits:
    fprintf(stderr, "Unsupported data size\n");
    break;
  case FrameFault::Parity:
    fprintf(stderr, "Unsupported parity\n");
    break;
  case FrameFault::StopBits:
    fprintf(stderr, "Unsupported stop bits\n");
    break;
  case FrameFault::SetSettings:
    perror("SetComParity 2");
    break;
  }
  return -1;
}

int SetComRawMode(int fd)
{
  return set_raw_mode(fd, line_settings(fd), "set raw mode error!");
}

int __scom_open(const char* device)
{
  const int fd = device != nullptr ? open(device, O_RDWR | O_CLOEXEC) : -1;
  if (fd > 0)
    return fd;
  warn(kLineOpen);
  printf("err while open com, devname=%s\n", device != nullptr ? device : "(null)");
  if (fd == 0)
    close(fd); // callers take 0 for a failure and would never close it
  return 0;
}

int __scom_close(int fd)
{
  if (fd < 1)
  {
    warn(kLineClose);
    return -1;
  }
  close(fd);
  return 0;
}

int __scom_read(int fd, void* buf, int len, unsigned char* /*reserved*/)
{
  if (!is_transfer(fd, buf, len))
  {
    warn(kLineRead);
    return -1;
  }
  return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

int __scom_write(int fd, const void* buf, int len, unsigned char* /*reserved*/)
{
  if (!is_transfer(fd, buf, len))
  {
    warn(kLineWriteArguments);
    return -1;
  }
  const auto written = static_cast<int>(write(fd, buf, static_cast<size_t>(len)));
  if (written < len)
  {
    warn(kLineWrite);
    printf("err while write com, %d/%d\n", written, len);
  }
  return written;
}
