// The first and only process of an emulated machine with one ATA disk: sends it commands and reports on the
// console, a line for each. Linked statically; tests/peers/disk_machine_test.cpp boots it and reads the lines.

#include <devcomm/disk_command.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

namespace
{

constexpr char disk[] = "/dev/sda";

// Loads what is in /modules, again and again until each has found the ones it needs.
void load_modules()
{
  for (int round = 0; round < 8; ++round)
  {
    DIR* folder = opendir("/modules");
    for (const dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder))
    {
      char path[300];
      snprintf(path, sizeof path, "/modules/%s", entry->d_name);
      const int fd = open(path, O_RDONLY | O_CLOEXEC);
      syscall(SYS_finit_module, fd, "", 0);
      close(fd);
    }
    closedir(folder);
  }
}

// @return the disk's descriptor, once the kernel has found it; -1 when it does not
int open_disk()
{
  int fd = -1;
  for (int tenths = 0; tenths < 300 && fd < 0; ++tenths)
  {
    fd = open(disk, O_RDWR | O_CLOEXEC);
    usleep(fd < 0 ? 100000 : 0);
  }
  return fd;
}

void report(const char* what, long value)
{
  printf("guest: %s %ld\n", what, value);
  tcdrain(STDOUT_FILENO); // or the kernel's own messages get in between
}

int result_of(int result)
{
  return result == 0 ? 0 : errno;
}

struct Request
{
  hdio_taskfile head;
  unsigned char data[512];
};

// One sector by taskfile request. @return 0 or the errno
int transfer(int fd, unsigned char command, unsigned long long lba, Request* request, bool write)
{
  ata_tf tf;
  tf_init(&tf, command, lba, 1);
  init_hdio_taskfile(&request->head, &tf, write, sizeof request->data);
  return result_of(do_taskfile_cmd(fd, &request->head, 5));
}

void commands(int fd)
{
  unsigned char args[4 + 512] = {0xEC, 0, 0, 1}; // IDENTIFY
  report("identify", result_of(do_drive_cmd(fd, args, 5)));
  report("model's letter", args[4 + 54 + 1]); // word 27, high byte first
  unsigned char unknown[4] = {0xFE, 0, 0, 0};
  report("unknown command", result_of(do_drive_cmd(fd, unknown, 5)));
  ata_tf tf;
  tf_init(&tf, 0x27, 0, 0);
  report("read native max", result_of(sg16(fd, 0, 0, &tf, nullptr, 0, 5)));
  report("last sector", static_cast<long>(tf_to_lba(&tf)));

  Request request = {};
  report("read by PIO", transfer(fd, 0x20, 3, &request, false));
  report("first byte", request.data[0]);
  report("read by 48-bit DMA", transfer(fd, 0x25, 4, &request, false));
  report("first byte", request.data[0]);
  memset(request.data, 'W', sizeof request.data);
  report("write by DMA", transfer(fd, 0xCA, 5, &request, true));
  report("read past the end", transfer(fd, 0x20, 0x0FFFFFF, &request, false));
}

} // namespace

int main()
{
  mkdir("/dev", 0755);
  mount("devtmpfs", "/dev", "devtmpfs", 0, nullptr);
  const int console = open("/dev/ttyS0", O_RDWR);
  dup2(console, STDOUT_FILENO);
  dup2(console, STDERR_FILENO);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  load_modules();
  const int fd = open_disk();
  commands(fd);
  report("flush by descriptor", HDD_flush_wcache(fd, nullptr, 0));
  report("flush by path", HDD_flush_wcache(0, disk, 0));
  report("sleep", ShutdownHD(disk));
  char sector[512] = {};
  report("read after sleep", pread(fd, sector, sizeof sector, 5 * 512));
  report("first byte", sector[0]);
  prefer_ata12 = 1;
  verbose = 1;
  report("flush by short block", HDD_flush_wcache(fd, nullptr, 0));
  reboot(RB_AUTOBOOT);
}
