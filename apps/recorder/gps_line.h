#pragma once

#include "sentence_sender.h"

#include <memory>

/// The line that a receiver's sentences come in on: a device, or a pseudo-terminal that a log is replayed on or
/// the simulated receiver writes to. One thread at a time.
class GpsLine
{
public:
  /// @param path  a device or a log; null for the simulated receiver. Stays in use
  /// @param baud  the device's rate
  /// @param rate  positions a second of the simulated receiver
  /// @return false when it cannot be used: one line on standard error then says why
  bool open(const char* path, int baud, int rate);

  /// Begins to send, unless it is a device, which does so by itself. @return false when that fails
  bool start();
  void stop();

  const char* device() const
  {
    return device_;
  }

  int baud() const
  {
    return baud_;
  }

private:
  const char* device_ = "";
  int baud_ = 0;
  std::unique_ptr<SentenceSender> sender_;
};
