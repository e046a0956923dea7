#pragma once

#include "dog.h"

#include <devcomm/thread.h>

#include <cstddef>
#include <cstdint>

/// A thread that writes sentences to a pseudo-terminal: to whoever opens device(), a receiver on a serial line.
class SentenceSender : public CommonCthread
{
public:
  SentenceSender() = default;

  /// Stop the thread first.
  ~SentenceSender() override;

  /// Makes the line. @return false after a line on standard error
  bool open();

  /// Path of the line's other end.
  const char* device() const
  {
    return device_;
  }

  void* PthreadProc() override;

protected:
  /// What the thread does.
  virtual void play() = 0;

  /// Writes; what the line does not take is lost, as on a wire that nobody reads.
  void send(const char* text, int length) const;

  /// Sleeps until that time of monotonic_us(). @return false when the thread is to end
  bool sleep_until(int64_t us);

private:
  const Dog* dog_ = nullptr; // while the thread runs
  int line_ = -1;
  int device_fd_ = -1; // held open, so that readers may come and go
  char device_[64] = "";
};
