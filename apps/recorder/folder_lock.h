#pragma once

#include <string>

/// Keeps a second recorder out of a data directory for as long as the object lives: two would overwrite each other's
/// waiting events and remove each other's half-written files. The kernel lets go when the process ends, however it
/// does.
class FolderLock
{
public:
  FolderLock() = default;
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  /// @param dir  made when missing, but not its parents
  /// @return false when it cannot be had, or another recorder holds it: one line on standard error has said so
  bool take(const std::string& dir);

private:
  int fd_ = -1;
};
