// A process that saves and reads at random is killed at random: what its cache holds afterwards is what it held
// before or after the operation under way, save that a stream keeps the operation before that in its buffer.

#include "comm_storage/card.h"
#include "support/fault_runs.h"

#include <devcomm/cache_file.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <random>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace
{

struct Ring
{
  static constexpr size_t room = 7;
  static constexpr size_t longest = 1024;
  static constexpr uint32_t late = 1; // operations whose effect a kill may undo
  static constexpr bool readingConsumes = false;

  explicit Ring(const std::string& card)
  {
    chmod((card + "/cache").c_str(), 0600);
    cache.setCacheFile("cache", 0, room + 1);
    cache.openCacheFile(card.c_str());
    EXPECT_EQ(cache.CheckCacheFileExist(), 1);
  }
  void save(int tag, const std::string& data, bool head)
  {
    cache.saveCacheData(tag, static_cast<int>(data.size()), data.data(), head);
  }
  bool read(int& tag, int& len, char* data, bool head)
  {
    return cache.readCacheData(tag, len, data, head) == 1;
  }
  void update()
  {
    cache.updateHead();
  }

  CCacheData cache;
};

struct File
{
  static constexpr size_t room = 300;
  static constexpr size_t longest = 512;
  static constexpr uint32_t late = 2;
  static constexpr bool readingConsumes = true;

  explicit File(const std::string& card)
  {
    std::string path = card + "/cache";
    cache.SetFileName(path.data());
    cache.OpenCacheFile();
    EXPECT_GE(cache.checkCacheData(), 0);
  }
  void save(int tag, const std::string& data, bool /*head*/)
  {
    cache.saveCacheData(tag, static_cast<int>(data.size()), data.data());
  }
  bool read(int& tag, int& len, char* data, bool /*head*/)
  {
    return cache.readCacheData(tag, len, data) == 0;
  }
  void update() {}

  CCacheDataEX cache;
};

struct List
{
  size_t count;
  int ids[File::room];
  std::vector<int> get() const
  {
    return {ids, ids + count};
  }
  void set(const std::vector<int>& from)
  {
    count = from.size();
    std::copy(from.begin(), from.end(), ids);
  }
};

// In memory that outlives the process.
struct Notes
{
  int id;         // never used twice
  uint32_t under; // the operation under way
  List after[4];  // what the file holds when operation n is done: [n % 4]
};

std::string payload(int id, size_t longest)
{
  std::string data(static_cast<size_t>(id) * 37 % (longest + 1), '\0');
  for (size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<char>(static_cast<size_t>(id) * 31 + i * 7);
  return data;
}

template <typename Cache>
void work(Cache& cache, Notes& notes, std::mt19937& random)
{
  std::vector<int> now = notes.after[notes.under % 4].get();
  size_t unlisted = 0; // saved since the last header
  const auto note = [&]
  {
    notes.after[(notes.under + 1) % 4].set(now);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    ++notes.under;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    unlisted = 0;
  };
  for (;;)
  {
    const bool head = random() % 2 == 0 || Cache::readingConsumes;
    if (random() % 5 < 3 && (now.size() < Cache::room || !Cache::readingConsumes))
    {
      // A ring that comes round to records its header still lists may deliver newer ones after a crash.
      if (unlisted + notes.after[notes.under % 4].count > Cache::room)
      {
        note();
        cache.update();
      }
      now.push_back(++notes.id);
      now.erase(now.begin(), now.begin() + (now.size() > Cache::room ? 1 : 0));
      ++unlisted;
      head ? note() : void();
      cache.save(notes.id, payload(notes.id, Cache::longest), head);
    }
    else if (!now.empty())
    {
      int tag = 0;
      int len = 0;
      char data[1024];
      now.erase(now.begin());
      head ? note() : void();
      cache.read(tag, len, data, head);
    }
  }
}

} // namespace

class CacheKill : public CardTest
{
protected:
  template <typename Cache>
  void survive();
};

template <typename Cache>
void CacheKill::survive()
{
  void* memory = mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto& notes = *static_cast<Notes*>(memory);
  std::mt19937 random(11);
  size_t records = 0;
  for (int run = 0; run < fault_runs(); ++run)
  {
    const auto seed = random();
    const pid_t child = fork();
    if (child == 0)
    {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      std::mt19937 own(seed);
      Cache cache(card);
      work(cache, notes, own);
    }
    usleep(static_cast<useconds_t>(random() % 4000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "run " << run << " ended by itself";

    Cache cache(card);
    std::vector<int> ids;
    int tag = 0;
    int len = 0;
    std::string data(1024, '\0');
    while (cache.read(tag, len, data.data(), false))
    {
      ASSERT_EQ(data.substr(0, static_cast<size_t>(len)), payload(tag, Cache::longest)) << "run " << run;
      ids.push_back(tag);
    }
    bool allowed = false;
    for (uint32_t back = 0; back <= Cache::late; ++back)
      allowed = allowed || notes.after[(notes.under + 4 - back) % 4].get() == ids;
    ASSERT_TRUE(allowed) << "run " << run << ": " << testing::PrintToString(ids);
    records += ids.size();

    ids.resize(Cache::readingConsumes ? 0 : ids.size());
    for (List& list : notes.after)
      list.set(ids);
    if (std::filesystem::file_size(path) > 1000000)
      std::filesystem::remove(path);
  }
  EXPECT_GT(records, 0u);
}

TEST_F(CacheKill, RingDeliversWhatItsLastHeaderLists)
{
  survive<Ring>();
}

TEST_F(CacheKill, FileLosesAtMostItsLastOperation)
{
  survive<File>();
}
