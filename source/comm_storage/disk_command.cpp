#include <devcomm/disk_command.h>

#include "comm_storage/disk_pass_through.h"

#include <cstdio>
#include <fcntl.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

constexpr unsigned char commandSmart = 0xB0;
constexpr unsigned char commandSleep = 0xE6;
constexpr unsigned char commandOldSleep = 0x99;
constexpr unsigned char commandFlushCache = 0xE7;

int open_device(const char* device)
{
  return device == nullptr ? -1 : open(device, O_RDWR | O_CLOEXEC);
}

// One command without data or arguments.
int plain_command(int fd, unsigned char command, unsigned int timeoutSecs)
{
  unsigned char args[4] = {command, 0, 0, 0};
  return do_drive_cmd(fd, args, timeoutSecs);
}

ata_tf taskfile_from_args(const unsigned char* args)
{
  const unsigned char sectors = args[3];
  ata_tf tf;
  tf_init(&tf, args[0], 0, 0);
  tf.nsect = sectors != 0 && args[1] == 0 ? sectors : args[1];
  tf.feat = args[2];
  if (tf.command == commandSmart)
  {
    tf.nsect = sectors;
    tf.lbal = args[1];
    tf.lbam = 0x4F; // SMART commands carry this signature
    tf.lbah = 0xC2;
  }
  return tf;
}

} // namespace

int do_drive_cmd(int fd, unsigned char* args, unsigned int timeout_secs)
{
  if (args == nullptr)
  {
    return ioctl(fd, HDIO_DRIVE_CMD, nullptr);
  }
  ata_tf tf = taskfile_from_args(args);
  const unsigned int bytes = args[3] * 512U;
  const int result =
      sg16(fd, 0, is_dma_command(tf.command), &tf, bytes == 0 ? nullptr : args + 4, bytes, timeout_secs);
  if (result != 0 && is_refused(errno))
  {
    if (verbose != 0)
    {
      fputs("Trying legacy HDIO_DRIVE_CMD\n", stderr);
    }
    return ioctl(fd, HDIO_DRIVE_CMD, args);
  }
  if (result == 0 || errno == EIO)
  {
    args[0] = tf.status;
    args[1] = tf.error;
    args[2] = tf.nsect;
  }
  return result;
}

int ShutdownHD(const char* device)
{
  const int fd = open_device(device);
  if (fd < 0)
  {
    return fd;
  }
  if (plain_command(fd, commandSleep, 0) != 0 && plain_command(fd, commandOldSleep, 0) != 0)
  {
    perror(" HDIO_DRIVE_CMD(sleep) failed");
  }
  return close(fd);
}

int HDD_flush_wcache(int fd, const char* device, int /*mode*/)
{
  constexpr unsigned int timeoutSecs = 3;
  if (fd < 1 && device == nullptr)
  {
    return 0;
  }
  const bool isOurs = fd < 1;
  const int used = isOurs ? open_device(device) : fd;
  if (used < 0)
  {
    return -1;
  }
  int error = 0;
  if (plain_command(used, commandFlushCache, timeoutSecs) != 0)
  {
    error = errno;
    perror(" HDIO_DRIVE_CMD(flushcache) failed");
  }
  if (isOurs)
  {
    close(used);
  }
  return error;
}
