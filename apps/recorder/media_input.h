#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

/// Where the byte stream comes from: the built-in clip, a file, a pipe or standard input. One thread at a time.
class MediaInput
{
public:
  MediaInput() = default;
  ~MediaInput();
  MediaInput(const MediaInput&) = delete;
  MediaInput& operator=(const MediaInput&) = delete;

  /// @param path  a file or pipe, "-" for standard input, null for the built-in clip; stays in use
  /// @return false when it cannot be read: one line on standard error then says why
  bool open(const char* path);

  /// What is played in a loop at its own frame rate: the clip and regular files. Anything else is live and is
  /// passed on as it arrives.
  bool loops() const
  {
    return loops_;
  }

  /// Reads the next bytes, waiting for them at most 100 ms.
  /// @return how many; 0 when none came in time, kEnd, or kError after a line on standard error
  ssize_t read(uint8_t* buffer, size_t size);

  static constexpr ssize_t kEnd = -1;
  static constexpr ssize_t kError = -2;

  /// Goes back to the first byte; only for what loops. @return false when that fails
  bool rewind();

  /// For messages: the path, "standard input" or "the built-in clip".
  const char* name() const
  {
    return name_;
  }

private:
  ssize_t read_clip(uint8_t* buffer, size_t size);
  bool fail(const char* what) const;

  const char* name_ = "";
  int fd_ = -1; // -1: the clip
  bool loops_ = false;
  size_t clipAt_ = 0;
};
