#pragma once

#include <functional>

/// Answers every ioctl of the test program while it lives, in place of the kernel. One at a time.
class IoctlScript
{
public:
  /// Gets descriptor, request and argument; gives the result and sets errno.
  using Answer = std::function<int(int, unsigned long, void*)>;

  explicit IoctlScript(Answer answer);
  ~IoctlScript();
  IoctlScript(const IoctlScript&) = delete;
  IoctlScript& operator=(const IoctlScript&) = delete;
};
