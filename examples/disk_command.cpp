// Flushes a disk's write cache before the power goes: disk_command /dev/sda. Without a disk it asks /dev/null.

#include <devcomm/disk_command.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
  const char* device = argc > 1 ? argv[1] : "/dev/null";
  verbose = 1;      // shows the command and its answer on standard error
  prefer_ata12 = 1; // for bridges that only know the short block
  const int error = HDD_flush_wcache(0, device, 0);
  if (error != 0)
  {
    printf("%s: %s\n", device, error < 0 ? "does not open" : strerror(error));
  }
  return argc > 1 && error != 0 ? 1 : 0;
}
