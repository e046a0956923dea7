#pragma once

#include <termios.h>

/// Where setting a frame format failed. Nothing has changed on the line then.
enum class FrameFault
{
  None,
  GetSettings,
  DataBits,
  Parity,
  StopBits,
  SetSettings
};

/// Sets data bits, stop bits, parity and flow control of a line; see CCommCom::SetProp.
FrameFault set_frame_format(int fd, int data_bits, int stop_bits, int parity, int flow_control);

/// What perror is given for the three ways in which setting a rate fails.
struct SpeedMessages
{
  const char* input;
  const char* output;
  const char* settings;
};

/// Sets both rates of a line, dropping unread and unsent bytes. @return 0; -1 after a message
int set_line_speed(int fd, speed_t speed, const SpeedMessages& messages);

/// The settings of a line; all zero when it has none.
termios line_settings(int fd);

/// Raw mode. @return the result of tcsetattr, after perror(message) when it failed
int set_raw_mode(int fd, termios settings, const char* message);
