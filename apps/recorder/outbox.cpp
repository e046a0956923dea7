#include "outbox.h"

#include "clock.h"
#include "finish_file.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char kPart[] = ".part";
constexpr char kEvents[] = "events.part"; // outlives the process: events that have left the journal
constexpr char kEventsFile[] = "events.txt";

bool ends_in(const std::string& name, const std::string& end)
{
  return name.size() >= end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
}

// Of the files in a directory, those that are being written, or the others.
std::vector<std::string> list(const std::string& dir, bool parts)
{
  std::vector<std::string> names;
  DIR* stream = opendir(dir.c_str());
  if (stream == nullptr)
    return names;
  while (const dirent* entry = readdir(stream))
  {
    struct stat about = {};
    const std::string name = entry->d_name;
    if (name[0] != '.' && ends_in(name, kPart) == parts && stat((dir + name).c_str(), &about) == 0 &&
        S_ISREG(about.st_mode))
      names.push_back(name);
  }
  closedir(stream);
  std::sort(names.begin(), names.end());
  return names;
}

std::string dated(const std::string& name)
{
  const int64_t us = wall_clock_us();
  const auto seconds = static_cast<time_t>(us / 1000000);
  tm utc = {};
  gmtime_r(&seconds, &utc);
  char date[32];
  const size_t length = strftime(date, sizeof date, "%Y%m%d-%H%M%S", &utc);
  char fraction[16];
  snprintf(fraction, sizeof fraction, ".%06d-", static_cast<int>(us % 1000000));
  return std::string(date, length) + fraction + name;
}

bool write_all(int fd, const std::vector<uint8_t>& bytes)
{
  for (size_t done = 0; done < bytes.size();)
  {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written <= 0)
      return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

} // namespace

bool Outbox::open(const std::string& data)
{
  const std::string dir = data + "/outbox/";
  mkdir(dir.c_str(), 0755);
  if (access(dir.c_str(), W_OK) != 0)
  {
    fprintf(stderr, "recorder: cannot write to %s\n", dir.c_str());
    return false;
  }
  for (const std::string& name : list(dir, true))
    if (name != kEvents)
      unlink((dir + name).c_str());
  dir_ = dir;
  return true;
}

bool Outbox::put(const std::vector<uint8_t>& bytes, std::string& name)
{
  if (!is_open() || files().size() >= kMaxFiles)
    return false;
  const std::string file = dated(name);
  const std::string part = path(file) + kPart;
  const int fd = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0)
    return false;
  const bool written = write_all(fd, bytes);
  const bool closed = ::close(fd) == 0;
  if (!written || !closed || !finish_file(part, path(file)))
  {
    unlink(part.c_str());
    return false;
  }
  name = file;
  return true;
}

void Outbox::put_events(Journal& journal)
{
  for (const std::string& name : files())
    if (ends_in(name, kEventsFile))
      return;
  const std::string part = path(kEvents);
  journal.move_waiting(part.c_str());
  struct stat about = {};
  if (stat(part.c_str(), &about) == 0 && about.st_size > 0) // a full disk leaves it empty
    finish_file(part, path(dated(kEventsFile)));
}

std::vector<std::string> Outbox::files() const
{
  return is_open() ? list(dir_, false) : std::vector<std::string>();
}

void Outbox::remove(const std::string& name)
{
  unlink(path(name).c_str());
}
