// A process that saves and reads at random is killed at random: what its cache holds afterwards is what it held
// before or after the operation under way, save that a stream keeps the operation before that in its buffer.

#include "comm_storage/card.h"
#include "support/fault_runs.h"

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

struct Ring : CCacheData
{
  static constexpr size_t room = 7;
  static constexpr size_t longest = 1024;
  static constexpr uint32_t late = 1; // operations whose effect a kill may undo
  static constexpr bool readingConsumes = false;

  explicit Ring(const std::string& card)
  {
    chmod((card + "/cache").c_str(), 0600);
    setCacheFile("cache", 0, room + 1);
    openCacheFile(card.c_str());
    EXPECT_EQ(CheckCacheFileExist(), 1);
  }
};

struct File : CCacheDataEX
{
  static constexpr size_t room = 300;
  static constexpr size_t longest = 512;
  static constexpr uint32_t late = 2;
  static constexpr bool readingConsumes = true;

  explicit File(const std::string& card)
  {
    std::string path = card + "/cache";
    SetFileName(path.data());
    OpenCacheFile();
    EXPECT_GE(checkCacheData(), 0);
  }
  void updateHead() {}
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
        cache.updateHead();
      }
      now.push_back(++notes.id);
      now.erase(now.begin(), now.begin() + (now.size() > Cache::room ? 1 : 0));
      ++unlisted;
      head ? note() : void();
      save_in(cache, notes.id, payload(notes.id, Cache::longest), head);
    }
    else if (!now.empty())
    {
      now.erase(now.begin());
      head ? note() : void();
      read_from(cache, head);
    }
  }
}

} // namespace

template <typename Cache>
class CacheKill : public CardTest
{
};
using Caches = testing::Types<Ring, File>;
TYPED_TEST_SUITE(CacheKill, Caches, );

TYPED_TEST(CacheKill, LosesAtMostWhatWasUnderWay)
{
  using Cache = TypeParam;
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
      Cache cache(this->card);
      work(cache, notes, own);
    }
    usleep(static_cast<useconds_t>(random() % 4000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "run " << run << " ended by itself";

    Cache cache(this->card);
    std::vector<int> ids;
    for (std::string record; (record = read_from(cache, false)) != "none";)
    {
      ids.push_back(stoi(record));
      ASSERT_EQ(record, std::to_string(ids.back()) + ":" + payload(ids.back(), Cache::longest)) << run;
    }
    bool allowed = false;
    for (uint32_t back = 0; back <= Cache::late; ++back)
      allowed = allowed || notes.after[(notes.under + 4 - back) % 4].get() == ids;
    ASSERT_TRUE(allowed) << "run " << run << ": " << testing::PrintToString(ids);
    records += ids.size();

    ids.resize(Cache::readingConsumes ? 0 : ids.size());
    for (List& list : notes.after)
      list.set(ids);
    if (std::filesystem::file_size(this->path) > 1000000)
      std::filesystem::remove(this->path);
  }
  EXPECT_GT(records, 0u);
}
