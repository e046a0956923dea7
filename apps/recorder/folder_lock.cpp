#include "folder_lock.h"

#include <devcomm/file.h>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

FolderLock::~FolderLock()
{
  if (fd_ >= 0)
    close(fd_);
}

bool FolderLock::take(const std::string& dir)
{
  std::string path = dir;
  fd_ = make_not_exist_dir(path.data()) == 0 ? open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
  if (fd_ < 0)
  {
    fprintf(stderr, "recorder: cannot use the directory %s\n", dir.c_str());
    return false;
  }
  // A file system that knows no locks must do without.
  if (flock(fd_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
    return true;
  fprintf(stderr, "recorder: another recorder uses the directory %s\n", dir.c_str());
  return false;
}
