#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

/// How long the work takes.
inline double seconds_of(const std::function<void()>& work)
{
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The number the next descriptor will get: the same before and after shows that none was left open.
inline int lowest_free_fd()
{
  const int fd = dup(1);
  close(fd);
  return fd;
}

inline int occurrences(const std::string& text, const std::string& what)
{
  int count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++count;
  return count;
}

/// The error a call fails with by -1; 0 when it does not fail, or does not say.
template <typename Call>
int error_of(Call call)
{
  errno = 0;
  return call() == -1 ? errno : 0;
}
