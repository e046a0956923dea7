#include <devcomm/time_process.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

struct ProcessStat
{
  int pid;
  char name[256];
};

using NameMatch = bool (*)(const char* read, const char* wanted);

bool all_digits(const char* text)
{
  return text[0] != '\0' && text[strspn(text, "0123456789")] == '\0';
}

// False when the process has gone meanwhile.
bool read_stat(const char* entry, const char* format, ProcessStat& stat)
{
  char path[32 + NAME_MAX];
  snprintf(path, sizeof path, "%s/%s/stat", "/proc/", entry);
  FILE* file = fopen(path, "re");
  if (file == nullptr)
  {
    return false;
  }
  char state = 0;
  const int fields = fscanf(file, format, &stat.pid, stat.name, &state);
  fclose(file);
  return fields >= 2;
}

int find_process(const char* wanted, const char* format, NameMatch matches)
{
  DIR* proc = wanted != nullptr ? opendir("/proc/") : nullptr;
  if (proc == nullptr)
  {
    return -1;
  }
  int pid = -1;
  while (const dirent* entry = readdir(proc))
  {
    ProcessStat stat = {};
    if (all_digits(entry->d_name) && read_stat(entry->d_name, format, stat) && matches(stat.name, wanted))
    {
      pid = stat.pid;
      break;
    }
  }
  closedir(proc);
  return pid;
}

bool contains(const char* read, const char* wanted)
{
  return strstr(read, wanted) != nullptr;
}

// The name read ends with ')', or early where the process's name has a space.
bool begins_with_read_name(const char* read, const char* wanted)
{
  return strncmp(read, wanted, strlen(read) - 1) == 0;
}

ssize_t read_some(int fd, char* to, size_t size)
{
  ssize_t got;
  do
  {
    got = read(fd, to, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

// Files under /proc report no size, so it reads until the end, in parts. Null on a read error or without memory.
char* read_to_end(int fd)
{
  size_t capacity = 4096;
  size_t used = 0;
  char* buffer = static_cast<char*>(malloc(capacity));
  while (buffer != nullptr)
  {
    const ssize_t got = read_some(fd, buffer + used, capacity - used - 1);
    if (got < 0)
    {
      free(buffer);
      return nullptr;
    }
    used += static_cast<size_t>(got);
    if (got == 0)
    {
      buffer[used] = '\0';
      return buffer;
    }
    if (used + 1 == capacity)
    {
      capacity *= 2; // cannot wrap: no buffer is larger than half the address space
      char* larger = static_cast<char*>(realloc(buffer, capacity));
      if (larger == nullptr)
      {
        free(buffer);
      }
      buffer = larger;
    }
  }
  return nullptr;
}

} // namespace

int get_cur_process_info(char* dir, char* name, int size)
{
  if (dir == nullptr || name == nullptr || size < 1)
  {
    return -1;
  }
  const ssize_t length = readlink("/proc/self/exe", dir, static_cast<size_t>(size));
  if (length < 0 || length >= size)
  {
    dir[0] = '\0';
    return -1;
  }
  dir[length] = '\0';
  char* slash = strrchr(dir, '/');
  if (slash == nullptr)
  {
    return -1;
  }
  memcpy(name, slash + 1, strlen(slash + 1) + 1);
  slash[1] = '\0';
  return static_cast<int>(slash + 1 - dir);
}

int get_process_status(char* name)
{
  return find_process(name, "%d %255s %c", contains);
}

int get_process_status_ex(char* name)
{
  return find_process(name, "%d (%255s %c", begins_with_read_name);
}

int _close_parent_all_fd()
{
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
  {
    return -1;
  }
  const rlim_t count = limit.rlim_cur == RLIM_INFINITY ? 1024 : limit.rlim_cur;
  const int end = count < INT_MAX ? static_cast<int>(count) : INT_MAX;
  for (int fd = 0; fd < end; ++fd)
  {
    // An interrupted close has closed the descriptor all the same.
    if (close(fd) != 0 && errno != EBADF && errno != EINTR)
    {
      return -1;
    }
  }
  return 0;
}

char* proc_sys_file_to_buf(char* path)
{
  const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd < 0)
  {
    return nullptr;
  }
  char* buffer = read_to_end(fd);
  close(fd);
  return buffer;
}
