#include <devcomm/serial_port.h>

#include "support/measure.h"
#include "support/signal_storm.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <termios.h>

namespace
{

termios last_settings; // of the last tcsetattr; a pseudo-terminal itself forces CS8 and drops PARENB

struct SerialPort : testing::Test
{
  void SetUp() override
  {
    m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(m_master, 0);
    ASSERT_EQ(grantpt(m_master) + unlockpt(m_master), 0);
    ASSERT_EQ(ptsname_r(m_master, m_device, sizeof m_device), 0);
    ASSERT_EQ(m_port.OpenCom(m_device, 1), 0);
    ASSERT_EQ(m_port.SetMode(), 0);
    m_port.SetSelectProp(5, 0, 0);
  }
  void TearDown() override
  {
    m_port.CloseCom();
    Vanish();
  }
  void Vanish()
  {
    close(m_master);
    m_master = -1;
  }
  void Send(const std::string& text)
  {
    ASSERT_EQ(write(m_master, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  std::string Line(int size = 64)
  {
    char line[600];
    int len = -1;
    const int result = m_port.ReadComWithBuf(line, size, &len);
    EXPECT_EQ(len, result < 0 ? 0 : result);
    return result < 0 ? "-1" : std::string(line, strlen(line));
  }

  CCommCom m_port;
  int m_master = -1;
  char m_device[64] = "";
};

} // namespace

extern "C" int tcsetattr(int fd, int actions, const termios* settings)
{
  using Function = int (*)(int, int, const termios*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "tcsetattr"));
  last_settings = *settings;
  return real(fd, actions, settings);
}

TEST_F(SerialPort, AssemblesLinesThatFitAndDropsThoseThatNeverWill)
{
  EXPECT_EQ(m_port.OpenCom(m_device, 0), 0) << "open already";
  Send("AB\nCD");
  m_port.SetSelectProp(0, 1000, 0);
  EXPECT_EQ(Line(1), "-1") << "no room for anything";
  EXPECT_EQ(Line(INT_MIN), "-1");
  EXPECT_EQ(Line(3), "-1") << "no room for the terminator";
  EXPECT_EQ(Line(4), "AB\n") << "nothing more has come: not read from the device";
  EXPECT_EQ(Line(), "-1");
  m_port.SetSelectProp(5, 0, 0);
  Send("\n\n");
  EXPECT_EQ(Line(), "CD\n");
  EXPECT_EQ(Line(), "\n");

  Send(std::string(400, 'x'));
  EXPECT_EQ(Line(), "-1");
  Send(std::string(112, 'x') + "\n");
  EXPECT_EQ(Line(), "-1") << "512 bytes held";
  EXPECT_EQ(Line(), "\n") << "and dropped for what comes behind them";

  Send("kept\nstale");
  EXPECT_EQ(Line(), "kept\n");
  m_port.CloseCom();
  EXPECT_EQ(m_port.GetPortFD(), 0);
  ASSERT_EQ(m_port.OpenCom(m_device, 0), 0);
  Send("\n");
  EXPECT_EQ(Line(), "\n") << "stale bytes do not reach the next port";
}

TEST_F(SerialPort, ReadsAndWritesOnceAndFailsOnTimeOut)
{
  char buf[16] = "";
  EXPECT_EQ(m_port.Write(buf, 3), 3) << "ready without waiting";
  Send("abcdef");
  EXPECT_EQ(m_port.ReadCom(buf, 4), 3) << "room for a terminator that is not written";
  EXPECT_EQ(m_port.IORead(buf, 3), 3);
  EXPECT_EQ(memcmp(buf, "def", 3), 0);
  Send("line\n");
  EXPECT_EQ(m_port.Read(buf, sizeof buf), 5);
  EXPECT_STREQ(buf, "line\n");

  m_port.SetSelectProp(0, 0, 0);
  EXPECT_TRUE(m_port.Read(buf, 9) == -1 && m_port.ReadCom(buf, 9) == -1 && m_port.IORead(buf, 9) == -1);
  m_port.SetSelectProp(-1, 0, 0);
  m_port.SetSelectProp(0, -1, 1);
  Send("x");
  CaptureStdout();
  EXPECT_EQ(m_port.IORead(buf, 1), -1) << "a negative time-out is a failed wait";
  EXPECT_EQ(m_port.Write(buf, 1), -1);
  m_port.CloseCom();
  EXPECT_EQ(m_port.Write(buf, 1), -1) << "and not a write to descriptor 0";
  EXPECT_EQ(m_port.ReadCom(buf, 9), -1);
  CCommCom never;
  EXPECT_EQ(never.Write(buf, 1) + never.Read(buf, 1) + never.IORead(buf, 1), -3);
  int len = 7;
  CaptureStderr();
  EXPECT_TRUE(never.ReadComWithBuf(nullptr, 9, &len) == -1 && len == 0);
  EXPECT_EQ(GetCapturedStderr(), "source/comm_com.cpp[351]:serial have not open!\n");
  EXPECT_EQ(GetCapturedStdout(), "[ERR]Write:573\n[ERR]Write:573\n[ERR]Write:561\n[ERR]Read:482\n");
  EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0) << "closing twice leaves descriptor 0 alone";
}

TEST_F(SerialPort, EndsWaitsWhenSignalsComeAndWhenTheDeviceVanishes)
{
  char buf[16];
  m_port.SetSelectProp(0, 50000, 0);
  {
    const SignalStorm storm;
    EXPECT_EQ(m_port.ReadCom(buf, 9), -1) << "goes on, but not longer than its time";
    EXPECT_EQ(m_port.IORead(buf, 9), -1);
  }

  m_port.SetSelectProp(5, 0, 0);
  Vanish();
  EXPECT_EQ(Line(), "-1");
  EXPECT_EQ(m_port.IORead(buf, 9) + m_port.IORead(nullptr, 9) + m_port.IORead(buf, -1), 0);
  EXPECT_EQ(m_port.Read(buf, 9), 0);
}

TEST_F(SerialPort, SetsRatesAndFormats)
{
  const int fd = m_port.GetPortFD();
  const tcflag_t format_bits = CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS;
  EXPECT_TRUE(m_port.SetSpeed(9600) == 0 && cfgetospeed(&last_settings) == B9600);
  EXPECT_TRUE(m_port.SetSpeed(300) == 0 && cfgetispeed(&last_settings) == B115200)
      << "a rate the class lacks";
  EXPECT_TRUE(SetComSpeed(fd, 300) == 0 && cfgetospeed(&last_settings) == B300);
  EXPECT_EQ(SetComSpeed(fd, 1800), -1);

  EXPECT_EQ(m_port.SetProp(7, 2, 'O', 1), 0);
  EXPECT_EQ(last_settings.c_cflag & format_bits, tcflag_t(CS7 | CSTOPB | PARENB | PARODD | CRTSCTS));
  EXPECT_TRUE(last_settings.c_cc[VMIN] == 0 && last_settings.c_cc[VTIME] == 10);
  EXPECT_EQ(SetComParity(fd, 5, 1, 2, 0), 0);
  EXPECT_EQ(last_settings.c_cflag & (format_bits & ~tcflag_t(PARODD)), tcflag_t(CS5 | PARENB));
  for (int parity : {0, int{'N'}, int{'s'}})
  {
    EXPECT_EQ(m_port.SetProp(8, 1, parity, 0), 0);
    EXPECT_EQ(last_settings.c_cflag & PARENB, 0U);
    EXPECT_NE(last_settings.c_iflag & INPCK, 0U);
  }
  EXPECT_EQ(m_port.SetProp(8, 1, 'n', 2), 0);
  EXPECT_EQ(last_settings.c_iflag & INPCK, 0U);
  EXPECT_EQ(last_settings.c_cflag & 0x1C00, 0x1C00U);

  termios untouched = last_settings;
  CaptureStdout();
  EXPECT_EQ(m_port.SetProp(9, 1, 0, 0) + m_port.SetProp(8, 1, 'x', 0) + m_port.SetProp(8, 3, 'N', 0), -3);
  CCommCom never;
  EXPECT_EQ(never.SetProp(8, 1, 0, 0), -1);
  EXPECT_EQ(GetCapturedStdout(), "[ERR]SetProp:175\n[ERR]SetProp:206\n[ERR]SetProp:219\n[ERR]SetProp:155\n");
  EXPECT_EQ(memcmp(&untouched, &last_settings, sizeof untouched), 0) << "nothing was set";

  EXPECT_EQ(m_port.SetModeEx(), 0);
  EXPECT_EQ(last_settings.c_cflag & (CSIZE | PARENB), tcflag_t(CS8));
  EXPECT_EQ(last_settings.c_lflag & (ICANON | ECHO), 0U);
  EXPECT_TRUE(last_settings.c_cc[VMIN] == 1 && last_settings.c_cc[VTIME] == 0);
  EXPECT_EQ(never.SetModeEx(), -1);
  EXPECT_EQ(SetComRawMode(fd), 0);
}

TEST_F(SerialPort, PlainFunctionsCheckTheirArguments)
{
  char byte = 'x';
  const std::unique_ptr<char[]> large(new char[0x100001]);
  const int fd = __scom_open(m_device);
  ASSERT_GT(fd, 0);
  EXPECT_EQ(__scom_write(fd, "hi\n", 3, nullptr), 3);
  Send("y");
  EXPECT_EQ(__scom_read(fd, large.get(), 0x100000, nullptr), 1);
  CaptureStderr();
  EXPECT_EQ(__scom_read(fd, large.get(), 0x100001, nullptr), -1);
  EXPECT_EQ(__scom_read(fd, &byte, 0, nullptr) + __scom_read(0, &byte, 1, nullptr), -2);
  EXPECT_EQ(__scom_write(fd, nullptr, 1, nullptr) + __scom_close(0), -2);
  const std::string reports = GetCapturedStderr();
  for (const char* line : {":226)", ":240)", ":212)"})
    EXPECT_GT(occurrences(reports, std::string("WARNING, assert failed (source/comm_cserial_op.cpp") + line),
              0);
  EXPECT_EQ(__scom_close(fd), 0);
  CaptureStdout();
  char missing[] = "/nowhere/tty";
  EXPECT_EQ(__scom_open(missing) + __scom_open(nullptr), 0);
  CCommCom port;
  EXPECT_EQ(port.OpenCom(missing, 0), -1);
  EXPECT_EQ(GetCapturedStdout(), "err while open com, devname=/nowhere/tty\n"
                                 "err while open com, devname=(null)\n"
                                 "Open Com /nowhere/tty fail\n");
}
