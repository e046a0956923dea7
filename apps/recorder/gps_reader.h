#pragma once

#include "gps_line.h"
#include "tracker.h"

#include <devcomm/nmea.h>
#include <devcomm/serial_port.h>
#include <devcomm/thread.h>

#include <cstdint>

/// The thread that reads a receiver's sentences from a serial line and hands each position on.
///
/// A position is complete with its RMC sentence. Sentences with a wrong checksum count for nothing. A line that
/// breaks off is opened again once a second until it is back; a receiver that says nothing for kSilenceUs has no fix.
class GpsReader : public CommonCthread
{
public:
  /// Both must outlive the thread. @param line  open @param tracker  gets the positions; used by the thread alone
  GpsReader(const GpsLine& line, Tracker& tracker);

  void* PthreadProc() override;

  static constexpr int64_t kSilenceUs = 5000000;

private:
  bool open_port();
  bool port_broken();
  void take_line(const char* line, int length);
  void hand_on(const _nmeaGPRMC& rmc);

  const GpsLine& line_;
  Tracker& tracker_;
  CCommCom port_;
  bool open_ = false;
  int64_t heardUs_ = 0; // when the last sentence came, by monotonic_us()
  _nmeaINFO info_ = {}; // what the sentences have said so far
};
