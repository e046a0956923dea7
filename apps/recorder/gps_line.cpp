#include "gps_line.h"

#include "log_player.h"
#include "simulated_receiver.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

bool GpsLine::open(const char* path, int baud, int rate)
{
  baud_ = baud;
  struct stat info = {};
  if (path != nullptr && stat(path, &info) != 0)
  {
    fprintf(stderr, "recorder: cannot open %s: %s\n", path, strerror(errno));
    return false;
  }
  if (path != nullptr && S_ISCHR(info.st_mode))
  {
    device_ = path;
    return true;
  }
  if (path == nullptr)
    sender_ = std::make_unique<SimulatedReceiver>(rate);
  else
  {
    auto player = std::make_unique<LogPlayer>();
    if (!player->open_log(path))
      return false;
    sender_ = std::move(player);
  }
  device_ = sender_->device();
  return sender_->open();
}

bool GpsLine::start()
{
  return sender_ == nullptr || sender_->Start("gps sender") == 0;
}

void GpsLine::stop()
{
  if (sender_ != nullptr)
    sender_->Stop();
}
