#pragma once

#include "support/scratch_folder.h"

#include <devcomm/cache_file.h>

#include <cstdint>
#include <string>

#include <unistd.h>

/// A test with a scratch directory that passes for the storage card, and with what the library prints.
class CardTest : public testing::Test
{
protected:
  CardTest()
  {
    std::filesystem::create_directories(card);
    testing::internal::CaptureStdout();
  }
  ~CardTest() override
  {
    said();
    testing::internal::GetCapturedStdout();
  }

  std::string said()
  {
    std::string text = testing::internal::GetCapturedStdout();
    if (HasFailure())
      fputs(text.c_str(), stderr); // the failure is among it
    testing::internal::CaptureStdout();
    return text;
  }

  std::string bytes() const
  {
    return contents(path);
  }
  void put(const std::string& all)
  {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << all;
  }

  // In memory if possible: a disk may flush a file that is made afresh, and one test does so 10,000 times.
  ScratchFolder root{access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"};
  std::string card = root.path + "/mnt/sd";
  std::string path = card + "/cache";
};

/// Integers as the files hold them.
template <typename... Words>
std::string words(Words... values)
{
  std::string bytes;
  for (const uint32_t value : {static_cast<uint32_t>(values)...})
    for (int shift = 0; shift < 32; shift += 8)
      bytes += static_cast<char>(value >> shift);
  return bytes;
}

/// What a read delivers, as "tag:data", or "none"; "bad" when it touches more than it should.
template <typename Read>
std::string delivered(Read read)
{
  int tag = -77;
  int len = -88;
  const std::string untouched(1025, '#');
  std::string data = untouched;
  const bool any = read(tag, len, data.data());
  const size_t used = any ? static_cast<size_t>(len) : 0;
  if (used > 1024 || data.substr(used) != untouched.substr(used) || (!any && (tag != -77 || len != -88)))
    return "bad";
  return any ? std::to_string(tag) + ":" + data.substr(0, used) : "none";
}

inline void save_in(CCacheData& cache, int tag, const std::string& data, bool head = true)
{
  cache.saveCacheData(tag, static_cast<int>(data.size()), data.data(), head);
}

inline int save_in(CCacheDataEX& cache, int tag, const std::string& data, bool /*head*/ = true)
{
  return cache.saveCacheData(tag, static_cast<int>(data.size()), data.data());
}

inline std::string read_from(CCacheData& cache, bool head = true)
{
  return delivered([&](int& tag, int& len, char* data)
                   { return cache.readCacheData(tag, len, data, head) == 1; });
}

inline std::string read_from(CCacheDataEX& cache, bool /*head*/ = true)
{
  return delivered([&](int& tag, int& len, char* data) { return cache.readCacheData(tag, len, data) == 0; });
}
