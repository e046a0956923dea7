#include "sentence_sender.h"

#include "clock.h"

#include <devcomm/serial_port.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr int64_t kLongestNapUs = 100000; // how soon a stop is noticed

void close_open(int fd)
{
  if (fd >= 0)
    close(fd);
}

} // namespace

SentenceSender::~SentenceSender()
{
  close_open(device_fd_);
  close_open(line_);
}

bool SentenceSender::open()
{
  line_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (line_ >= 0 && grantpt(line_) == 0 && unlockpt(line_) == 0 &&
      ptsname_r(line_, device_, sizeof device_) == 0)
    device_fd_ = ::open(device_, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (device_fd_ < 0)
  {
    fprintf(stderr, "recorder: cannot make a pseudo-terminal: %s\n", strerror(errno));
    return false;
  }
  return SetComRawMode(device_fd_) == 0;
}

void* SentenceSender::PthreadProc()
{
  const Dog dog("gps sender");
  dog_ = &dog;
  play();
  return nullptr;
}

void SentenceSender::send(const char* text, int length) const
{
  if (write(line_, text, static_cast<size_t>(length)) < 0)
    return;
}

bool SentenceSender::sleep_until(int64_t us)
{
  for (int64_t now = monotonic_us(); now < us && GetStatus() != 0; now = monotonic_us())
  {
    dog_->feed();
    nap_us(std::min(us - now, kLongestNapUs));
  }
  return GetStatus() != 0;
}
