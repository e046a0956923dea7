// The cache files saving a record and reading it back, against the same system or stdio calls made by hand.

#include "comm_data/rounds.h"

#include <devcomm/cache_file.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int kRounds = 41;
constexpr int kRecords = 5000;
constexpr int kSlots = 64;
constexpr int kLen = 256;

struct Slot
{
  int32_t tag, len;
  char data[1024];
};

struct Item
{
  int32_t mark, tag, len;
  char data[512];
};

void check(bool good)
{
  if (!good)
  {
    perror("cache_bench");
    abort();
  }
}

void measure_ring(const std::string& dir, bool head)
{
  CCacheData ring;
  ring.setCacheFile("ring", 0, kSlots);
  check(ring.openCacheFile(dir.c_str()) >= 0);
  const int fd = open((dir + "/by_hand").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  check(fd >= 0 && ftruncate(fd, 44 + kSlots * 1032) == 0);
  char data[1024] = "record";
  char back[1024];

  const auto ours = [&]
  {
    for (int i = 0; i < kRecords; ++i)
    {
      int tag = 0;
      int len = 0;
      ring.saveCacheData(i, kLen, data, head);
      check(ring.readCacheData(tag, len, back, head) == 1 && tag == i && len == kLen);
    }
  };
  int32_t header[11] = {};
  const auto theirs = [&]
  {
    const auto write_header = [&]
    {
      check(!head || pwrite(fd, header, sizeof header, 0) == sizeof header);
    };
    for (int i = 0; i < kRecords; ++i)
    {
      const off_t at = 44 + i % kSlots * 1032;
      Slot slot = {i, kLen, {}};
      memcpy(slot.data, data, kLen);
      check(pwrite(fd, &slot, sizeof slot, at) == sizeof slot);
      header[2] = i % kSlots;
      write_header();
      check(pread(fd, &slot, sizeof slot, at) == sizeof slot);
      memcpy(back, slot.data, kLen);
      header[1] = i % kSlots;
      write_header();
      check(slot.tag == i && slot.len == kLen);
    }
  };
  const Medians times = alternate(kRounds, ours, theirs);
  printf("| CCacheData save and read, %s head writes | pwrite, pread | %.2f | %.0f ns a record, %.0f ns |\n",
         head ? "with" : "without", times.ratio, times.ours * 1e9 / kRecords, times.theirs * 1e9 / kRecords);
  close(fd);
}

void measure_file(const std::string& dir)
{
  std::string path = dir + "/file";
  const std::string by_hand = dir + "/stdio";
  char data[512] = "record";
  char back[512];

  const auto ours = [&]
  {
    CCacheDataEX file;
    file.SetFileName(path.data());
    for (int i = 0; i < kRecords; ++i)
    {
      int tag = 0;
      int len = 0;
      check(file.saveCacheData(i, kLen, data) == 0);
      check(file.readCacheData(tag, len, back) == 0 && tag == i && len == kLen);
    }
    file.CloseCacheFile();
    file.RemoveCacheFile();
  };
  const auto theirs = [&]
  {
    FILE* file = fopen(by_hand.c_str(), "w+be");
    check(file != nullptr);
    for (int i = 0; i < kRecords; ++i)
    {
      const off_t at = off_t{i} * static_cast<off_t>(sizeof(Item));
      Item item = {0x5A5A, i, kLen, {}};
      memcpy(item.data, data, kLen);
      check(fseeko(file, at, SEEK_SET) == 0 && fwrite(&item, sizeof item, 1, file) == 1);
      check(fseeko(file, at, SEEK_SET) == 0 && fread(&item, sizeof item, 1, file) == 1);
      memcpy(back, item.data, kLen);
      check(item.tag == i && item.len == kLen);
      item.mark = 0;
      check(fseeko(file, at, SEEK_SET) == 0 && fwrite(&item, sizeof item, 1, file) == 1);
    }
    fclose(file);
    unlink(by_hand.c_str());
  };
  const Medians times = alternate(kRounds, ours, theirs);
  printf("| CCacheDataEX save and read | fseek, fwrite, fread | %.2f | %.0f ns a record, %.0f ns |\n",
         times.ratio, times.ours * 1e9 / kRecords, times.theirs * 1e9 / kRecords);
}

} // namespace

int main()
{
  char base[] = "/tmp/devcomm_bench_XXXXXX";
  check(mkdtemp(base) != nullptr);
  const std::string root = base;
  const std::string dir = root + "/mnt/sd";
  check(mkdir((root + "/mnt").c_str(), 0700) == 0 && mkdir(dir.c_str(), 0700) == 0);
  measure_ring(dir, false);
  unlink((dir + "/ring").c_str()); // its mode lets only root open it again
  measure_ring(dir, true);
  measure_file(dir);
  for (const char* name : {"/mnt/sd/ring", "/mnt/sd/by_hand", "/mnt/sd", "/mnt", ""})
  {
    remove((root + name).c_str());
  }
  return 0;
}
