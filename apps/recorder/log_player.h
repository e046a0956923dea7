#pragma once

#include "sentence_sender.h"

#include <cstdio>

/// Replays a receiver's log once, at the pace of the times of day in it.
class LogPlayer : public SentenceSender
{
public:
  LogPlayer() = default;
  ~LogPlayer() override;

  /// @return false after a line on standard error
  bool open_log(const char* path);

private:
  void play() override;
  void wait_for_turn(const char* line, int length);

  FILE* log_ = nullptr;
  int64_t dueUs_ = 0;  // when the sentence played last was due, by monotonic_us()
  int64_t logMs_ = -1; // its time of day; -1 before the first
};
