#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
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

/// What a process has used of the processors; this one by default.
inline double cpu_seconds(pid_t pid = 0)
{
  clockid_t clock = 0;
  timespec used = {};
  EXPECT_EQ(clock_getcpuclockid(pid, &clock), 0);
  EXPECT_EQ(clock_gettime(clock, &used), 0);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
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
