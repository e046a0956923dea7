#include "internal/serial_line.h"

#include <cstdio>

namespace
{

// The bits of IXON, IXANY and IXOFF. They belong into c_iflag, but callers' settings have always got them
// in c_cflag.
constexpr tcflag_t kSoftwareFlowBits = 0x1C00;

bool set_data_bits(termios& settings, int data_bits)
{
  constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  if (data_bits < 5 || data_bits > 8)
    return false;
  settings.c_cflag = (settings.c_cflag & ~static_cast<tcflag_t>(CSIZE)) | kSizes[data_bits - 5];
  return true;
}

bool set_parity(termios& settings, int parity)
{
  switch (parity)
  {
  case 0:
  case 'N':
  case 'n':
    settings.c_cflag &= ~static_cast<tcflag_t>(PARENB);
    settings.c_iflag &= ~static_cast<tcflag_t>(INPCK);
    break;
  case 1:
  case 'O':
  case 'o':
    settings.c_cflag |= PARENB | PARODD;
    settings.c_iflag |= INPCK;
    break;
  case 2:
  case 'E':
  case 'e':
    settings.c_cflag &= ~static_cast<tcflag_t>(PARODD);
    settings.c_cflag |= PARENB;
    settings.c_iflag |= INPCK;
    break;
  case 'S':
  case 's':
    settings.c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB);
    break;
  default:
    return false;
  }
  // Input checking stays off for the small letter alone: callers rely on it.
  if (parity != 'n')
    settings.c_iflag |= INPCK;
  return true;
}

bool set_stop_bits(termios& settings, int stop_bits)
{
  if (stop_bits == 1)
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
  else if (stop_bits == 2)
    settings.c_cflag |= CSTOPB;
  return stop_bits == 1 || stop_bits == 2;
}

void set_flow_control(termios& settings, int flow_control)
{
  if (flow_control == 1)
    settings.c_cflag |= CRTSCTS;
  else if (flow_control == 2)
    settings.c_cflag |= kSoftwareFlowBits;
  else
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
}

} // namespace

FrameFault set_frame_format(int fd, int data_bits, int stop_bits, int parity, int flow_control)
{
  termios settings = {};
  if (tcgetattr(fd, &settings) != 0)
    return FrameFault::GetSettings;
  if (!set_data_bits(settings, data_bits))
    return FrameFault::DataBits;
  if (!set_parity(settings, parity))
    return FrameFault::Parity;
  if (!set_stop_bits(settings, stop_bits))
    return FrameFault::StopBits;
  set_flow_control(settings, flow_control);
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 10; // tenths of a second
  tcflush(fd, TCIFLUSH);
  return tcsetattr(fd, TCSANOW, &settings) == 0 ? FrameFault::None : FrameFault::SetSettings;
}

int set_line_speed(int fd, speed_t speed, const SpeedMessages& messages)
{
  termios settings = line_settings(fd);
  tcflush(fd, TCIOFLUSH);
  if (cfsetispeed(&settings, speed) != 0)
  {
    perror(messages.input);
    return -1;
  }
  if (cfsetospeed(&settings, speed) != 0)
  {
    perror(messages.output);
    return -1;
  }
  if (tcsetattr(fd, TCSANOW, &settings) != 0)
  {
    perror(messages.settings);
    return -1;
  }
  tcflush(fd, TCIOFLUSH);
  return 0;
}

termios line_settings(int fd)
{
  termios settings = {};
  if (tcgetattr(fd, &settings) != 0)
    settings = {};
  return settings;
}

int set_raw_mode(int fd, termios settings, const char* message)
{
  cfmakeraw(&settings);
  const int result = tcsetattr(fd, TCSANOW, &settings);
  if (result != 0)
    perror(message);
  return result;
}
