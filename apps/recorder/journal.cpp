#include "journal.h"

#include <devcomm/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char kCard[] = "/mnt/sd";
constexpr char kCacheName[] = "events";
constexpr int kMostWaiting = 4096;
constexpr size_t kMostOwed = 1000;
constexpr size_t kLongestPath = 255; // the cache cuts a longer one
constexpr int kLastWaits = 20;       // for a database that is in use when the journal closes
constexpr useconds_t kLastWaitUs = 50000;
constexpr int kLineBytes = 1024; // what a record of the cache holds

// The cache is a file with holes, and a disk that has become full fills no hole.
bool fill_holes(const std::string& file)
{
  struct stat about = {};
  const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
  const bool filled = fd >= 0 && fstat(fd, &about) == 0 && posix_fallocate(fd, 0, about.st_size) == 0;
  if (fd >= 0)
    close(fd);
  return filled;
}

bool make_path(std::string path)
{
  return make_not_exist_dir(path.data()) == 0;
}

// Cut to what a record holds; never longer than the space given.
int event_line(const Event& event, char (&line)[kLineBytes])
{
  const int length =
      snprintf(line, sizeof line, "%lld\t%s\t%.6f\t%.6f\t%s", static_cast<long long>(event.timeUs),
               event.kind, event.position.lat, event.position.lon, event.text);
  return std::min(length, kLineBytes - 1);
}

bool write_all(int fd, const std::string& text)
{
  size_t done = 0;
  while (done < text.size())
  {
    const ssize_t put = write(fd, text.data() + done, text.size() - done);
    if (put < 0 && errno != EINTR)
      return false;
    done += put > 0 ? static_cast<size_t>(put) : 0;
  }
  return fsync(fd) == 0;
}

// Adds whole lines, or nothing. A line that a kill once cut short is ended first.
bool append_lines(const char* file, std::string lines)
{
  const int fd = open(file, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0)
    return false;
  const off_t end = lseek(fd, 0, SEEK_END);
  char last = '\n';
  if (end > 0 && pread(fd, &last, 1, end - 1) == 1 && last != '\n')
    lines.insert(0, 1, '\n');
  const bool written = end >= 0 && write_all(fd, lines);
  if (!written && (end < 0 || ftruncate(fd, end) != 0))
    perror("recorder: cannot take back what is half written");
  close(fd);
  return written;
}

} // namespace

Journal::~Journal()
{
  close();
}

bool Journal::fail(const char* what, const char* name) const
{
  fprintf(stderr, "recorder: cannot %s %s\n", what, name);
  return false;
}

bool Journal::open(const char* dir)
{
  const CAutoLock guard(&lock_);
  const std::string data = dir;
  open_ = open_cache(data) && open_database(data + "/recorder.db");
  if (!open_)
    release();
  return open_;
}

bool Journal::open_cache(const std::string& dir)
{
  card_ = dir;
  if (dir.find(kCard) == std::string::npos)
  {
    card_ += kCard;
    if (!make_path(dir + "/mnt") || !make_path(card_))
      return fail("use the directory", card_.c_str());
  }
  waiting_.setCacheFile(kCacheName, 0, kMostWaiting);
  if (card_.size() + sizeof kCacheName > kLongestPath || !reopen_cache())
    return fail("open the cache in", card_.c_str());
  if (!fill_holes(card_ + "/" + kCacheName))
    fail("reserve room for events in", card_.c_str()); // there may be enough for those that come
  return true;
}

// At the positions in the file: what was read and not yet confirmed waits again.
bool Journal::reopen_cache()
{
  const bool opened = waiting_.openCacheFile(card_.c_str()) >= 0;
  // It is made unreadable; a recorder that does not run as root wants it back after a restart.
  if (opened)
    chmod((card_ + "/" + kCacheName).c_str(), 0600);
  return opened;
}

bool Journal::open_database(const std::string& file)
{
  const bool opened =
      database_.Open(file.c_str()) &&
      // Readers do not hold the recorder up, and a commit does not wait for the card.
      database_.SqliteOpEx("PRAGMA journal_mode=WAL") && database_.SqliteOpEx("PRAGMA synchronous=NORMAL") &&
      database_.SqliteOpEx("CREATE TABLE IF NOT EXISTS event"
                           " (time_us INTEGER, kind TEXT, text TEXT, lat REAL, lon REAL, fix INTEGER)") &&
      database_.SqliteOpEx("CREATE TABLE IF NOT EXISTS track"
                           " (time INTEGER, lat REAL, lon REAL, speed REAL, course REAL, fix INTEGER)") &&
      insertEvent_.SetCommandText("INSERT INTO event VALUES (?, ?, ?, ?, ?, ?)") &&
      insertTrack_.SetCommandText("INSERT INTO track VALUES (?, ?, ?, ?, ?, ?)");
  return opened || fail("use the database", file.c_str());
}

void Journal::on_event(const Event& event)
{
  const CAutoLock guard(&lock_);
  if (!open_)
    return;
  char line[kLineBytes];
  keep_waiting(line, event_line(event, line));
  owed_.push_back({static_cast<double>(event.timeUs), event.kind, event.text, event.position});
  insert_owed();
}

void Journal::keep_waiting(const char* line, int length)
{
  // A card that failed may be back; one that fails now gets a second chance, for this event would be lost.
  for (int attempt = 0; attempt < 2; ++attempt)
  {
    if (waiting_.CheckCacheFileExist() == 0 && !reopen_cache())
      continue;
    waiting_.saveCacheData(0, length, line, true);
    if (waiting_.CheckCacheFileExist() == 1)
      return;
  }
  fail("keep an event in", card_.c_str());
}

// Leaves for the next time what the database does not take now.
void Journal::insert_owed()
{
  while (!owed_.empty())
  {
    const Row& row = owed_.front();
    const bool bound =
        insertEvent_.BindParam(1, row.timeUs) && insertEvent_.BindParam(2, row.kind.c_str()) &&
        insertEvent_.BindParam(3, row.text.c_str()) && insertEvent_.BindParam(4, row.position.lat) &&
        insertEvent_.BindParam(5, row.position.lon) && insertEvent_.BindParam(6, row.position.fix);
    if ((!bound || !insertEvent_.Excute()) && owed_.size() <= kMostOwed)
      return;
    owed_.pop_front();
  }
}

// One point a second is a track.
void Journal::on_position(const Position& position)
{
  const CAutoLock guard(&lock_);
  if (!open_ || position.time == trackTime_)
    return;
  trackTime_ = position.time;
  insert_owed();
  if (insertTrack_.BindParam(1, static_cast<double>(position.time)) &&
      insertTrack_.BindParam(2, position.lat) && insertTrack_.BindParam(3, position.lon) &&
      insertTrack_.BindParam(4, position.speed) && insertTrack_.BindParam(5, position.course) &&
      insertTrack_.BindParam(6, position.fix))
    insertTrack_.Excute(); // a database in use just lacks the point
}

int Journal::move_waiting(const char* file)
{
  const CAutoLock guard(&lock_);
  if (!open_)
    return 0;
  if (waiting_.CheckCacheFileExist() == 0)
    reopen_cache();
  std::string lines;
  int moved = 0;
  int tag = 0;
  int length = 0;
  char line[kLineBytes];
  while (waiting_.readCacheData(tag, length, line, false) == 1)
  {
    lines.append(line, static_cast<size_t>(length)) += '\n';
    ++moved;
  }
  if (moved == 0)
    return 0;
  if (!append_lines(file, std::move(lines)))
  {
    reopen_cache();
    return -1;
  }
  waiting_.updateHead();
  return moved;
}

void Journal::close()
{
  const CAutoLock guard(&lock_);
  if (!open_)
    return;
  for (int wait = 0; wait < kLastWaits && !owed_.empty(); ++wait)
  {
    insert_owed();
    if (!owed_.empty())
      usleep(kLastWaitUs);
  }
  open_ = false;
  release();
}

void Journal::release()
{
  insertEvent_.Clear();
  insertTrack_.Clear();
  database_.Close();
  waiting_.closeCacheFile();
}
