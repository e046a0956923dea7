#include "media_input.h"

#include "clip.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int kWaitMs = 100; // how soon a stop is noticed while nothing arrives

} // namespace

MediaInput::~MediaInput()
{
  if (fd_ > STDIN_FILENO)
    close(fd_);
}

bool MediaInput::open(const char* path)
{
  if (path == nullptr)
  {
    name_ = "the built-in clip";
    loops_ = true;
    return true;
  }
  if (strcmp(path, "-") == 0)
  {
    name_ = "standard input";
    fd_ = STDIN_FILENO;
  }
  else
  {
    name_ = path;
    // Without waiting: a pipe that nobody writes to yet is opened all the same, and a stop is still noticed.
    fd_ = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }

  struct stat info = {};
  if (fd_ < 0 || fstat(fd_, &info) != 0)
    return fail("open");
  if (S_ISDIR(info.st_mode))
  {
    errno = EISDIR;
    return fail("read");
  }
  loops_ = S_ISREG(info.st_mode);
  return true;
}

ssize_t MediaInput::read(uint8_t* buffer, size_t size)
{
  if (fd_ < 0)
    return read_clip(buffer, size);
  pollfd waiting = {fd_, POLLIN, 0};
  if (poll(&waiting, 1, kWaitMs) < 1)
    return 0;
  const ssize_t got = ::read(fd_, buffer, size);
  if (got > 0)
    return got;
  if (got == 0)
    return kEnd;
  if (errno == EAGAIN || errno == EINTR)
    return 0;
  fail("read");
  return kError;
}

bool MediaInput::rewind()
{
  clipAt_ = 0;
  return fd_ < 0 || lseek(fd_, 0, SEEK_SET) == 0;
}

ssize_t MediaInput::read_clip(uint8_t* buffer, size_t size)
{
  const Clip clip = builtin_clip();
  if (clipAt_ == clip.size)
    return kEnd;
  const size_t got = std::min(size, clip.size - clipAt_);
  memcpy(buffer, clip.data + clipAt_, got);
  clipAt_ += got;
  return static_cast<ssize_t>(got);
}

bool MediaInput::fail(const char* what) const
{
  fprintf(stderr, "recorder: cannot %s %s: %s\n", what, name_, strerror(errno));
  return false;
}
