#include "disk_flush.h"

#include <devcomm/disk_command.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

// The device of the whole disk that a path lies on, such as /dev/sda; empty when that cannot be told.
std::string disk_of(const char* path)
{
  struct stat status = {};
  if (stat(path, &status) != 0)
    return {};
  const std::string link =
      "/sys/dev/block/" + std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
  char resolved[PATH_MAX];
  if (realpath(link.c_str(), resolved) == nullptr)
    return {};
  std::string device = resolved;
  if (access((device + "/partition").c_str(), F_OK) == 0)
    device.erase(device.rfind('/'));
  return "/dev/" + device.substr(device.rfind('/') + 1);
}

} // namespace

bool flush_disk_of(const char* path)
{
  const std::string disk = disk_of(path);
  if (strncmp(disk.c_str(), "/dev/sd", 7) != 0 && strncmp(disk.c_str(), "/dev/hd", 7) != 0)
    return false;
  sync();
  const bool flushed = HDD_flush_wcache(0, disk.c_str(), 0) == 0;
  if (flushed)
    printf("recorder: %s has written its cache\n", disk.c_str());
  return flushed;
}
