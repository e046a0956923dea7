#include <devcomm/file.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <mntent.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace
{

/// Closes its descriptor at the end of the block.
class Descriptor
{
public:
  explicit Descriptor(const char* path) : m_fd(path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC)) {}
  ~Descriptor()
  {
    if (m_fd >= 0)
    {
      close(m_fd);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const
  {
    return m_fd;
  }

private:
  int m_fd;
};

// Reads until size bytes or the end of the file. @return bytes read, -1 on an error
int read_up_to(int fd, char* buf, int size)
{
  int total = 0;
  while (total < size)
  {
    const ssize_t got = read(fd, buf + total, static_cast<size_t>(size - total));
    if (got < 0 && errno == EINTR)
    {
      continue;
    }
    if (got < 0)
    {
      return -1;
    }
    if (got == 0)
    {
      break;
    }
    total += static_cast<int>(got);
  }
  return total;
}

// What the file says of itself, which is 0 for most of /proc and absurd for some folders.
long long told_size(int fd)
{
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

// Reads to the end into a buffer that always keeps one byte free. @return bytes read, -1 on failure
int read_all(int fd, char** buffer, int capacity)
{
  int total = 0;
  for (;;)
  {
    const int got = read_up_to(fd, *buffer + total, capacity - total);
    if (got < 0)
    {
      return -1;
    }
    total += got;
    if (total < capacity)
    {
      return total;
    }
    if (capacity > INT_MAX / 2)
    {
      return -1;
    }
    capacity *= 2;
    char* larger = static_cast<char*>(realloc(*buffer, static_cast<size_t>(capacity)));
    if (larger == nullptr)
    {
      return -1;
    }
    *buffer = larger;
  }
}

int write_file(const char* buf, int len, const char* path, const char* mode)
{
  if (path == nullptr || len < 0 || (buf == nullptr && len > 0))
  {
    return -1;
  }
  FILE* file = fopen(path, mode);
  if (file == nullptr)
  {
    return -1;
  }
  const auto size = static_cast<size_t>(len);
  const bool written = size == 0 || fwrite(buf, 1, size, file) == size;
  const bool closed = fclose(file) == 0; // the last bytes may fail only here
  return written && closed ? 0 : -1;
}

} // namespace

long long getfilesize(char* path)
{
  FILE* file = path == nullptr ? nullptr : fopen(path, "rbe");
  if (file == nullptr)
  {
    return -1;
  }
  const long long size = fseeko(file, 0, SEEK_END) == 0 ? ftello(file) : -1;
  fclose(file);
  return size;
}

long long get_file_size(const char* path)
{
  struct stat status = {};
  return path != nullptr && stat(path, &status) == 0 ? status.st_size : 0;
}

int fileisexist(char* path)
{
  return path != nullptr && access(path, F_OK) == 0 ? 0 : -1;
}

int file_exist(char* path)
{
  return fileisexist(path) == 0 ? 1 : 0;
}

char* filetobufwithoutbuf(char* path, int* len)
{
  int ignored = 0;
  int& length = len != nullptr ? *len : ignored;
  length = 0;
  const Descriptor file(path);
  const long long told = file.get() < 0 ? -1 : told_size(file.get());
  if (told < 0 || told >= INT_MAX)
  {
    return nullptr;
  }
  constexpr int UnknownSize = 4096;
  const int capacity = told == 0 ? UnknownSize : static_cast<int>(told) + 1;
  char* buffer = static_cast<char*>(malloc(static_cast<size_t>(capacity)));
  const int total = buffer == nullptr ? -1 : read_all(file.get(), &buffer, capacity);
  if (total < 0)
  {
    free(buffer);
    return nullptr;
  }
  buffer[total] = '\0';
  length = total;
  char* fitted = static_cast<char*>(realloc(buffer, static_cast<size_t>(total) + 1));
  return fitted != nullptr ? fitted : buffer;
}

int filetobufwithbuf(char* buf, int size, int* len, char* path)
{
  int ignored = 0;
  int& length = len != nullptr ? *len : ignored;
  length = 0;
  if (size < 0 || (buf == nullptr && size > 0))
  {
    return -1;
  }
  const Descriptor file(path);
  const int got = file.get() < 0 ? -1 : read_up_to(file.get(), buf, size);
  if (got < 0)
  {
    return -1;
  }
  length = got;
  return got < std::min<long long>(told_size(file.get()), size) ? -1 : 0;
}

int buffertofile(char* buf, int len, char* path)
{
  return write_file(buf, len, path, "wb+e");
}

int bufferaddfile(char* buf, int len, char* path)
{
  return write_file(buf, len, path, "a+e");
}

int dir_is_exist(char* path)
{
  DIR* dir = path == nullptr ? nullptr : opendir(path);
  if (dir == nullptr)
  {
    return -1;
  }
  closedir(dir);
  return 0;
}

int make_dir(char* path)
{
  if (path == nullptr)
  {
    return -1;
  }
  return access(path, F_OK) == 0 ? 0 : mkdir(path, 0777);
}

int make_not_exist_dir(char* path)
{
  if (make_dir(path) != 0)
  {
    perror("make_dir");
    return -1;
  }
  if (dir_is_exist(path) != 0)
  {
    perror("opendir");
    return -1;
  }
  return 0;
}

int get_mnt_size(char* path, unsigned long long* total, unsigned long long* avail)
{
  struct statfs status = {};
  const int result = path == nullptr ? -1 : statfs(path, &status);
  const auto block = result < 0 ? 0ULL : static_cast<unsigned long long>(status.f_bsize);
  if (total != nullptr)
  {
    *total = block * status.f_blocks;
  }
  if (avail != nullptr)
  {
    *avail = block * status.f_bavail;
  }
  return result;
}

struct mntent* get_mount_point(const char* dir)
{
  FILE* table = dir == nullptr ? nullptr : setmntent("/proc/mounts", "re");
  if (table == nullptr)
  {
    return nullptr;
  }
  struct mntent* entry = getmntent(table);
  while (entry != nullptr && strcmp(entry->mnt_dir, dir) != 0)
  {
    entry = getmntent(table);
  }
  endmntent(table);
  return entry;
}

unsigned long long get_disk_size(char* device)
{
  const Descriptor disk(device);
  if (disk.get() < 0)
  {
    return 0;
  }
  uint64_t bytes = 0;
  if (ioctl(disk.get(), BLKGETSIZE64, &bytes) == 0)
  {
    return bytes;
  }
  unsigned long sectors = 0;
  int sector_size = 0;
  if (ioctl(disk.get(), BLKGETSIZE, &sectors) == 0 && ioctl(disk.get(), BLKSSZGET, &sector_size) == 0)
  {
    return static_cast<unsigned long long>(sectors) * static_cast<unsigned int>(sector_size);
  }
  const off_t end = lseek(disk.get(), 0, SEEK_END);
  return end < 0 ? 0 : static_cast<unsigned long long>(end);
}
