#include "finish_file.h"

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace
{

bool sync_to_disk(const std::string& path)
{
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool done = fd >= 0 && fsync(fd) == 0;
  if (fd >= 0)
    close(fd);
  return done;
}

} // namespace

bool finish_file(const std::string& part, const std::string& file)
{
  if (!sync_to_disk(part) || rename(part.c_str(), file.c_str()) != 0)
    return false;
  const size_t slash = file.rfind('/');
  // The name is good from here on; not every file system can sync a directory.
  sync_to_disk(slash == std::string::npos ? "." : file.substr(0, slash + 1));
  return true;
}
