// Records from one process to another: CCommShmBuffer beside the least a locked ring can do (one flock pair per
// record each way around the copies, and nothing else), beside a pipe, and beside Boost.Interprocess's message queue.

#include <devcomm/shm_ring.h>

#include "comm_data/rounds.h"

#include <boost/interprocess/ipc/message_queue.hpp>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned int kArea = 256 * 1024; // bytes under way at the most, for each of them
constexpr int kRounds = 121;
constexpr size_t kBytesPerRound = 8 << 20;

// A way between the processes. The writer opens its own end, as another program would.
class Way
{
public:
  virtual ~Way() = default;
  virtual void OpenWriter() {}
  virtual void Put(char* data, unsigned int len) = 0;
  virtual int Get(char* data, unsigned int max) = 0; // 0: nothing there yet
  virtual bool Bounded()
  {
    return false;
  } // waits by itself when full
};

class OurRing : public Way
{
public:
  OurRing() : m_key(0x5B000000 + getpid()), m_ring(new CCommShmBuffer(m_key, kArea))
  {
    m_ring->UserRegisterEx(1);
  }
  ~OurRing() override
  {
    shmctl(GetShm(m_key, 0), IPC_RMID, nullptr);
    unlink(("/tmp/ShmBuf_lock_" + std::to_string(m_key)).c_str());
  }
  void OpenWriter() override
  {
    m_ring.reset(new CCommShmBuffer(m_key, 0));
  }
  void Put(char* data, unsigned int len) override
  {
    m_ring->ShmWrite(data, len, nullptr);
  }
  int Get(char* data, unsigned int max) override
  {
    return m_ring->UserRead(1, reinterpret_cast<unsigned char*>(data), max);
  }

private:
  int m_key;
  std::unique_ptr<CCommShmBuffer> m_ring;
};

// Lengths and bytes in a wrapping area under flock; no checks, no registered readers.
class FlockRing : public Way
{
public:
  FlockRing()
  {
    m_shared = static_cast<Shared*>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    m_lock = open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  }
  ~FlockRing() override
  {
    unlink(m_path.c_str());
    munmap(m_shared, sizeof(Shared));
    close(m_lock);
  }
  void OpenWriter() override
  {
    m_lock = open(m_path.c_str(), O_RDWR | O_CLOEXEC);
  }
  void Put(char* data, unsigned int len) override
  {
    flock(m_lock, LOCK_EX);
    CopyIn(m_shared->written, &len, sizeof len);
    CopyIn(m_shared->written + static_cast<unsigned int>(sizeof len), data, len);
    m_shared->written += static_cast<unsigned int>(sizeof len) + len;
    flock(m_lock, LOCK_UN);
  }
  int Get(char* data, unsigned int /*max*/) override
  {
    unsigned int len = 0;
    flock(m_lock, LOCK_EX);
    if (m_shared->read != m_shared->written)
    {
      CopyOut(m_shared->read, &len, sizeof len);
      CopyOut(m_shared->read + static_cast<unsigned int>(sizeof len), data, len);
      m_shared->read += static_cast<unsigned int>(sizeof len) + len;
    }
    flock(m_lock, LOCK_UN);
    return static_cast<int>(len);
  }

private:
  struct Shared
  {
    unsigned int written;
    unsigned int read;
    char area[kArea];
  };

  void CopyIn(unsigned int at, const void* from, unsigned int n)
  {
    const unsigned int first = std::min(n, kArea - at % kArea);
    memcpy(m_shared->area + at % kArea, from, first);
    memcpy(m_shared->area, static_cast<const char*>(from) + first, n - first);
  }
  void CopyOut(unsigned int at, void* to, unsigned int n)
  {
    const unsigned int first = std::min(n, kArea - at % kArea);
    memcpy(to, m_shared->area + at % kArea, first);
    memcpy(static_cast<char*>(to) + first, m_shared->area, n - first);
  }

  std::string m_path = "/tmp/ring_bench_lock_" + std::to_string(getpid());
  Shared* m_shared;
  int m_lock;
};

class Pipe : public Way
{
public:
  Pipe()
  {
    if (pipe2(m_ends, O_CLOEXEC) != 0)
    {
      abort();
    }
    fcntl(m_ends[1], F_SETPIPE_SZ, static_cast<int>(kArea));
  }
  ~Pipe() override
  {
    close(m_ends[0]);
    close(m_ends[1]);
  }
  void Put(char* data, unsigned int len) override
  {
    iovec parts[2] = {{&len, sizeof len}, {data, len}};
    if (writev(m_ends[1], parts, 2) != static_cast<ssize_t>(sizeof len + len))
    {
      abort();
    }
  }
  int Get(char* data, unsigned int /*max*/) override
  {
    unsigned int len = 0;
    Read(reinterpret_cast<char*>(&len), sizeof len);
    Read(data, len);
    return static_cast<int>(len);
  }
  bool Bounded() override
  {
    return true;
  }

private:
  void Read(char* to, size_t n)
  {
    while (n > 0)
    {
      const ssize_t got = read(m_ends[0], to, n);
      if (got <= 0)
      {
        abort();
      }
      to += got;
      n -= static_cast<size_t>(got);
    }
  }
  int m_ends[2];
};

class BoostQueue : public Way
{
public:
  explicit BoostQueue(unsigned int len)
      : m_name("ring_bench_" + std::to_string(getpid())),
        m_queue(boost::interprocess::create_only, m_name.c_str(), kArea / len, len)
  {
  }
  ~BoostQueue() override
  {
    boost::interprocess::message_queue::remove(m_name.c_str());
  }
  void Put(char* data, unsigned int len) override
  {
    m_queue.send(data, len, 0);
  }
  int Get(char* data, unsigned int max) override
  {
    size_t got = 0;
    unsigned int priority = 0;
    m_queue.receive(data, max, got, priority);
    return static_cast<int>(got);
  }
  bool Bounded() override
  {
    return true;
  }

private:
  std::string m_name;
  boost::interprocess::message_queue m_queue;
};

// A way with a process at its other end that writes a round of records whenever it is told to.
class Run
{
public:
  Run(std::unique_ptr<Way> way, unsigned int len) : m_way(std::move(way)), m_len(len), m_data(len, 'x')
  {
    m_taken = static_cast<std::atomic<size_t>*>(
        mmap(nullptr, sizeof *m_taken, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (pipe2(m_go, O_CLOEXEC) != 0)
    {
      abort();
    }
    m_writer = fork();
    if (m_writer == 0)
    {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      m_way->OpenWriter();
      WriteRounds();
    }
  }
  ~Run()
  {
    kill(m_writer, SIGKILL);
    waitpid(m_writer, nullptr, 0);
    close(m_go[0]);
    close(m_go[1]);
    munmap(m_taken, sizeof *m_taken);
  }
  void operator()()
  {
    const size_t records = kBytesPerRound / m_len;
    m_taken->store(0);
    const char go = 1;
    if (write(m_go[1], &go, 1) != 1)
    {
      abort();
    }
    for (size_t i = 0; i < records;)
    {
      const int got = m_way->Get(m_data.data(), m_len);
      if (got == 0)
      {
        sched_yield();
        continue;
      }
      if (got != static_cast<int>(m_len))
      {
        fprintf(stderr, "a record was lost\n");
        exit(1);
      }
      m_taken->store(++i, std::memory_order_relaxed);
    }
  }

private:
  [[noreturn]] void WriteRounds()
  {
    const size_t records = kBytesPerRound / m_len;
    const size_t ahead = kArea / m_len / 2;
    char go = 0;
    while (read(m_go[0], &go, 1) == 1)
    {
      for (size_t i = 0; i < records; i++)
      {
        while (!m_way->Bounded() && i - m_taken->load(std::memory_order_relaxed) >= ahead)
        {
          sched_yield();
        }
        m_way->Put(m_data.data(), m_len);
      }
    }
    _exit(0);
  }

  std::unique_ptr<Way> m_way;
  unsigned int m_len;
  std::string m_data;
  std::atomic<size_t>* m_taken;
  int m_go[2];
  pid_t m_writer;
};

void measure(unsigned int len)
{
  Run ours(std::make_unique<OurRing>(), len);
  const auto row = [&](std::unique_ptr<Way> peer, const char* against)
  {
    Run theirs(std::move(peer), len);
    const std::string what = "CCommShmBuffer, " + std::to_string(len / 1024) + " KiB records, two processes";
    print_row(what.c_str(), against, kBytesPerRound,
              alternate(
                  kRounds, [&] { ours(); }, [&] { theirs(); }));
  };
  row(std::make_unique<FlockRing>(), "ring with one flock pair a record each way");
  row(std::make_unique<Pipe>(), "pipe");
  row(std::make_unique<BoostQueue>(len), "Boost.Interprocess message queue");
}

} // namespace

int main()
{
  measure(1024);
  measure(8 * 1024);
}
