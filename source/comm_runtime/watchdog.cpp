#include <devcomm/watchdog.h>

#include <devcomm/lock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <shared_mutex>

#include <unistd.h>

namespace
{

constexpr int32_t kDeadAfterMisses = 4;

int32_t now_seconds()
{
  return static_cast<int32_t>(time(nullptr));
}

struct Dog
{
  CLock lock; // guards missCount, lastFeed and enabled; the rest never changes while the dog is listed
  pid_t pid = getpid();
  int32_t missCount = 0;
  int32_t timeout = 0;
  int32_t lastFeed = now_seconds();
  int32_t enabled = 1;
  int32_t id = 0;
  char name[32] = {};
  Dog* next = nullptr;
  Dog* prev = nullptr;
};

// Counts a pass and tells how many in a row found the dog overdue; 0 when it is not, or is disabled.
int32_t count_miss(Dog& dog, int32_t now, int32_t* last_feed)
{
  CAutoLock guard(&dog.lock);
  if (dog.enabled == 0)
  {
    return 0;
  }
  *last_feed = dog.lastFeed;
  const bool overdue = llabs(int64_t{now} - dog.lastFeed) > dog.timeout;
  if (!overdue)
  {
    dog.missCount = 0;
  }
  else if (dog.missCount < INT32_MAX)
  {
    ++dog.missCount;
  }
  return dog.missCount;
}

void append(std::list<CHECK_DOG_INFO_S>& dead, const Dog& dog)
{
  CHECK_DOG_INFO_S info = {};
  info.id = dog.id;
  memcpy(info.name, dog.name, sizeof dog.name);
  try
  {
    dead.push_back(info);
  }
  catch (const std::bad_alloc&)
  {
    // Without memory the dog is counted and printed, not listed.
  }
}

} // namespace

// Dogs come and go from their own threads while a supervisor walks the list. Walking takes listLock shared,
// so that a check that is slow to print holds up no feed.
struct CCommDog::Block
{
  uint32_t nextId = 0;
  Dog* head = nullptr; // registration order
  Dog* tail = nullptr;
  int32_t count = 0;
  std::shared_mutex listLock; // guards all of the above

  Dog* Find(int id) const
  {
    Dog* dog = head;
    while (dog != nullptr && dog->id != id)
    {
      dog = dog->next;
    }
    return dog;
  }

  void Append(Dog* dog)
  {
    dog->prev = tail;
    (tail != nullptr ? tail->next : head) = dog;
    tail = dog;
    ++count;
  }

  void Remove(Dog* dog)
  {
    (dog->prev != nullptr ? dog->prev->next : head) = dog->next;
    (dog->next != nullptr ? dog->next->prev : tail) = dog->prev;
    --count;
  }
};

CCommDog* CCommDog::m_pInstance = nullptr;

CCommDog::CCommDog() : m_block(new (std::nothrow) Block) {}

CCommDog* CCommDog::Instance()
{
  // A static's initialisation runs once, whichever threads come first.
  static const bool made = (m_pInstance = new (std::nothrow) CCommDog) != nullptr;
  return made ? m_pInstance : nullptr;
}

int CCommDog::RegisterDog(char* name, int timeout)
{
  auto* dog = m_block != nullptr ? new (std::nothrow) Dog : nullptr;
  if (dog == nullptr)
  {
    return -1;
  }
  dog->timeout = timeout;
  if (name != nullptr)
  {
    memcpy(dog->name, name, strnlen(name, sizeof dog->name - 1));
  }
  std::unique_lock<std::shared_mutex> guard(m_block->listLock);
  const int id = static_cast<int>(m_block->nextId++);
  dog->id = id;
  m_block->Append(dog);
  return id;
}

int CCommDog::DeregisterDog(int id)
{
  if (m_block == nullptr)
  {
    return -1;
  }
  std::unique_lock<std::shared_mutex> guard(m_block->listLock);
  Dog* dog = m_block->Find(id);
  if (dog == nullptr)
  {
    return -1;
  }
  m_block->Remove(dog);
  delete dog;
  return 0;
}

int CCommDog::FeedDog(int id)
{
  if (m_block == nullptr)
  {
    return -1;
  }
  std::shared_lock<std::shared_mutex> guard(m_block->listLock);
  Dog* dog = m_block->Find(id);
  if (dog == nullptr)
  {
    return -1;
  }
  CAutoLock dog_guard(&dog->lock);
  dog->lastFeed = now_seconds();
  return 0;
}

int CCommDog::EnableDog(int id, int enable)
{
  if (m_block == nullptr)
  {
    return -1;
  }
  std::shared_lock<std::shared_mutex> guard(m_block->listLock);
  Dog* dog = m_block->Find(id);
  if (dog == nullptr)
  {
    return -1;
  }
  CAutoLock dog_guard(&dog->lock);
  dog->enabled = enable;
  return 0;
}

int CCommDog::CheckDog()
{
  return Check(nullptr);
}

int CCommDog::CheckDog(std::list<CHECK_DOG_INFO_S>& dead)
{
  return Check(&dead);
}

int CCommDog::Check(std::list<CHECK_DOG_INFO_S>* dead)
{
  if (m_block == nullptr)
  {
    return -1;
  }
  std::shared_lock<std::shared_mutex> guard(m_block->listLock);
  const int32_t now = now_seconds();
  int dead_count = 0;
  for (Dog* dog = m_block->head; dog != nullptr; dog = dog->next)
  {
    int32_t last_feed = 0;
    const int32_t misses = count_miss(*dog, now, &last_feed);
    if (misses == 0)
    {
      continue;
    }
    const bool is_dead = misses >= kDeadAfterMisses;
    printf("dog[%d, %s] %s: last time=%d, nowtime=%d\n", dog->id, dog->name, is_dead ? "Dead" : "May Be Dead",
           last_feed, now);
    if (is_dead)
    {
      ++dead_count;
      if (dead != nullptr)
      {
        append(*dead, *dog);
      }
    }
  }
  return dead_count;
}
