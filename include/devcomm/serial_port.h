#pragma once

#include <devcomm/export.h>

#include <cstdint>
#include <cstdio>
#include <pthread.h>

/// @file
/// Serial lines, in two ways: a class that assembles lines of text, and functions on a bare descriptor.
///
///     CCommCom port;
///     if (port.OpenCom(device, 0) == 0 && port.SetSpeed(9600) == 0 && port.SetMode() == 0)
///     {
///       char line[128];
///       int len = 0;
///       port.SetSelectProp(1, 0, 0); // reads wait up to a second
///       while (port.ReadComWithBuf(line, sizeof line, &len) < 0)
///         ;
///     }
///     port.CloseCom();
///
/// Failures are told on standard output or standard error, with the texts device logs are searched by.

/// A rate and its termios constant.
struct SpeedPair
{
  int32_t speed; ///< B9600, ...
  int32_t baud;
};

/// The ten rates of CCommCom::SetSpeed, 600 to 115200. Applications may change it before they start threads.
extern DEVCOMM_API SpeedPair SpeedArry[10];

/// One serial port. Several threads may Write; reads, opening and closing are for one thread at a time.
/// Every operation returns 0 or a count, and -1 on failure, unless it says otherwise; on a port that is not
/// open none of them touches a descriptor. The time-outs start at 0, a test that does not wait:
/// set them with SetSelectProp.
class DEVCOMM_API CCommCom
{
public:
  CCommCom();
  /// Does not close the port: that is CloseCom's.
  ~CCommCom();
  CCommCom(const CCommCom&) = delete;
  CCommCom& operator=(const CCommCom&) = delete;

  /// Opens a device as it is set, without making it the controlling terminal.
  ///
  /// @param lock  non-zero: CloseCom waits for a Write that is under way
  /// @return 0, also when the port is open already; -1 for a null path or a failure
  int OpenCom(char* device, int lock);

  /// Closes the port. Without the lock flag it does not wait for a Write. GetPortFD says 0 afterwards;
  /// callers rely on it. Lines already received can be taken with ReadComWithBuf until the next OpenCom.
  void CloseCom();

  /// Sets the rate; one that SpeedArry lacks becomes 115200. Drops unread and unsent bytes.
  int SetSpeed(int baud);

  /// Sets the frame format; reads return after at most a second. On failure nothing is changed.
  ///
  /// @param dataBits  5 to 8
  /// @param stopBits  1 or 2
  /// @param parity    0 N n none, 1 O o odd, 2 E e even, S s space. Input parity checking stays off for 'n'
  ///                  only; callers rely on it
  /// @param flowCtrl  1 RTS/CTS; 2 sets the bits of IXON, IXANY and IXOFF in c_cflag, where callers expect
  ///                  them; else none
  int SetProp(int dataBits, int stopBits, int parity, int flowCtrl);

  /// Sets a time-out. @param which  1 for Write, else for all reads
  /// @return 0. A negative time-out makes each wait fail
  int SetSelectProp(int sec, int usec, int which);

  /// Drops unread and unsent bytes. @return 0
  int IOFlush();
  /// Waits until all is sent. @return 0
  int SyncSend();
  /// Drops unread bytes. @return 0
  int ClearRecv();

  /// Raw mode. @return the result of tcsetattr
  int SetMode();
  /// Raw mode from 8N1; the raw mode comes last and decides. @return 0, or the result of tcsetattr
  int SetModeEx();

  /// Takes one line, ended by '\n', out of the bytes received so far. Reads from the device at most once,
  /// and not at all when a line is there: call again until a line comes.
  ///
  /// @param line  gets the line with its '\n' and a terminator; on failure, bytes without a terminator
  /// @param size  bytes of line. A longer line never comes out: once 512 bytes are held without one that
  ///              fits, they are dropped
  /// @param len   gets the length, 0 on failure
  /// @return the length; -1 for no line yet, a time-out or a failure. Goes on when a signal interrupts
  int ReadComWithBuf(char* line, int size, int* len);

  /// Reads at most size - 1 bytes, without a terminator. Goes on when a signal interrupts.
  int ReadCom(char* buf, int size);

  /// Reads a line with fgets, whose buffer the other reads do not see. @return strlen(buf)
  int Read(char* buf, int size);

  /// Reads at most size bytes. @return bytes; 0 at the end and for a read error; -1 for a failed wait
  int IORead(void* buf, int size);

  /// Writes once, as much as the line takes. @return bytes written
  int Write(char* buf, int size);

  /// @return the descriptor: -1 before the first OpenCom, 0 after CloseCom
  int GetPortFD();

private:
  struct Timeout
  {
    int32_t sec;
    int32_t usec;
  };

  int WaitFor(short event, const Timeout& timeout, bool restart) const;
  int TakeLine(char* line, int size, int* len);
  int Descriptor() const;

  FILE* m_fp;              // set while the port is open
  int32_t m_fd;            // -1, then the descriptor, then 0
  int32_t m_bOpen;         // the descriptor is ours to use only while this is 1
  int32_t m_bLock;         // CloseCom takes m_mutex
  int32_t m_nBufLen;       // bytes held in m_szBuf
  char m_szBuf[512];       // received bytes not yet taken as lines
  Timeout m_tvRead;        // of every read
  Timeout m_tvWrite;       // of Write
  pthread_mutex_t m_mutex; // around each write
};

/// Sets the rate of a descriptor: 300 to 230400 without 1800. @return 0; -1 for another rate or a failure
DEVCOMM_API int SetComSpeed(int fd, unsigned int baud);

/// CCommCom::SetProp on a descriptor, with messages on standard error. @return 0; -1 on failure
DEVCOMM_API int SetComParity(int fd, int dataBits, int stopBits, int parity, int flowCtrl);

/// Raw mode. @return the result of tcsetattr
DEVCOMM_API int SetComRawMode(int fd);

/// Opens a device as it is set. @return the descriptor; 0, not -1, on failure
DEVCOMM_API int __scom_open(const char* device);

/// @return 0; -1 for a descriptor below 1
DEVCOMM_API int __scom_close(int fd);

/// One read. @param len  1 to 1,048,576 @param reserved  not looked at
/// @return what read returned; -1 for arguments outside those ranges
DEVCOMM_API int __scom_read(int fd, void* buf, int len, unsigned char* reserved);

/// One write, with a report when not all went out. @param len  1 to 1,048,576 @param reserved  not looked at
/// @return what write returned; -1 for arguments outside those ranges
DEVCOMM_API int __scom_write(int fd, const void* buf, int len, unsigned char* reserved);
