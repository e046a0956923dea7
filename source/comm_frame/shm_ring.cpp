#include <devcomm/shm_ring.h>

#include <devcomm/lock.h>

#include "internal/mutex_hold.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/shm.h>

struct CCommShmBuffer::Header
{
  struct User
  {
    uint32_t id; // 0: free
    uint32_t readPos;
    uint32_t lastSeq; // consumed last
  };

  uint32_t totalSize;
  uint32_t headerSize;
  uint32_t writePos;
  uint32_t lastSeq;
  uint32_t userCount;
  User users[11]; // by id

  // The entry among the first `last` that holds id; 0: none.
  int Find(int id, uint32_t last) const
  {
    for (uint32_t i = 1; i <= last; i++)
    {
      if (users[i].id == static_cast<uint32_t>(id))
      {
        return static_cast<int>(i);
      }
    }
    return 0;
  }

  int FindCounted(int id) const
  {
    return Find(id, std::min<uint32_t>(userCount, 10));
  }
};

namespace
{
constexpr uint32_t recordMark = 0xE0E0FEF8U;
constexpr uint32_t headerBytes = 152;
constexpr int defaultSize = 65536;

struct Record
{
  uint32_t mark;
  uint32_t seq;
  uint32_t length;
};
static_assert(sizeof(Record) == 12, "a format between processes");

bool valid_id(int id)
{
  return id >= 1 && id <= 10;
}

// Stores keep their order, so that a process killed between two leaves the half that does no harm.
void store(uint32_t& field, uint32_t value)
{
  __atomic_store_n(&field, value, __ATOMIC_RELEASE);
}

// Reads the record header at pos of the ring; the position after it, or -1 when there is none.
int read_record(char* area, uint32_t areaSize, uint32_t pos, Record& record)
{
  if (areaSize < sizeof record || pos > areaSize)
  {
    return -1;
  }
  const int next = ReadShm(area, static_cast<int>(pos), static_cast<int>(areaSize),
                           reinterpret_cast<char*>(&record), sizeof record);
  return record.mark == recordMark ? next : -1;
}

// A record begun at the write position and not counted is one whose writer died over the copy. The bytes from
// there on that it may have spoilt; 0: none.
uint32_t torn_bytes(char* area, uint32_t areaSize, uint32_t writePos, uint32_t lastSeq)
{
  Record record;
  if (read_record(area, areaSize, writePos, record) < 0 || record.seq != lastSeq + 1)
  {
    return 0;
  }
  const uint32_t room = areaSize - static_cast<uint32_t>(sizeof record);
  return static_cast<uint32_t>(sizeof record) + std::min(record.length, room);
}

// Whether two stretches of the ring, aLength bytes from a and bLength from b, share a byte.
bool overlap(uint32_t areaSize, uint32_t a, uint32_t aLength, uint32_t b, uint32_t bLength)
{
  const uint64_t fromAToB = (static_cast<uint64_t>(b) + areaSize - a) % areaSize;
  const uint64_t fromBToA = (static_cast<uint64_t>(a) + areaSize - b) % areaSize;
  return fromAToB < aLength || fromBToA < bLength;
}

// The rest of a torn record may hold headers of older records whose payload is spoilt: a shorter record in its
// place would leave them standing.
void wipe_torn(char* area, uint32_t areaSize, uint32_t writePos, uint32_t lastSeq)
{
  const uint32_t torn = torn_bytes(area, areaSize, writePos, lastSeq);
  for (uint32_t i = sizeof(Record); i < torn; i++)
  {
    const uint32_t toEnd = areaSize - writePos;
    area[i < toEnd ? writePos + i : i - toEnd] = 0;
  }
}
} // namespace

CCommShmBuffer::CCommShmBuffer(SHM_IPC_KEY_T key, int size)
    : fileLock(nullptr), shmId(-1), base(nullptr), dataArea(nullptr), shmSize(0), dataSize(0), mutex()
{
  pthread_mutex_init(&mutex, nullptr);
  char path[64];
  snprintf(path, sizeof path, "%s%u", "/tmp/ShmBuf_lock_", static_cast<unsigned int>(key));
  fileLock = new (std::nothrow) CFileLock(path);
  if (fileLock == nullptr)
  {
    return;
  }
  const CFileAutoLock hold(fileLock);
  shmId = GetShm(key, 0);
  if (shmId < 0)
  {
    const int wanted = size < 1 ? defaultSize : std::max(size, static_cast<int>(headerBytes));
    shmId = GetShm(key, wanted);
  }
  Attach();
}

// Takes the segment when its header agrees with its real size. One whose header says nothing was made by a process
// that came no further: it gets its header now, as a new one does.
void CCommShmBuffer::Attach()
{
  static_assert(sizeof(Header) == headerBytes && offsetof(Header, users) == 20, "a format between processes");
  shmid_ds segment{};
  if (shmId < 0 || shmctl(shmId, IPC_STAT, &segment) != 0 || segment.shm_segsz < headerBytes ||
      segment.shm_segsz > INT_MAX)
  {
    return;
  }
  base = reinterpret_cast<char*>(AtShm(shmId));
  if (base == nullptr)
  {
    return;
  }
  Header header = Load();
  Header unfinished{};
  unfinished.totalSize = header.totalSize;
  if (memcmp(&header, &unfinished, sizeof header) == 0)
  {
    store(Shared().totalSize, static_cast<uint32_t>(segment.shm_segsz));
    store(Shared().headerSize, headerBytes); // last: it tells that the header is there
    header = Load();
  }
  if (header.headerSize != headerBytes || header.totalSize < headerBytes ||
      header.totalSize > segment.shm_segsz)
  {
    DtShm(base);
    base = nullptr;
    return;
  }
  shmSize = header.totalSize;
  dataArea = base + headerBytes;
  dataSize = shmSize - headerBytes;
}

CCommShmBuffer::~CCommShmBuffer()
{
  delete fileLock;
  if (base != nullptr)
  {
    DtShm(base);
  }
  pthread_mutex_destroy(&mutex);
}

bool CCommShmBuffer::Usable() const
{
  return fileLock != nullptr && base != nullptr;
}

CCommShmBuffer::Header& CCommShmBuffer::Shared() const
{
  return *reinterpret_cast<Header*>(base);
}

// A copy: what was checked cannot change afterwards.
CCommShmBuffer::Header CCommShmBuffer::Load() const
{
  Header header;
  memcpy(&header, base, sizeof header);
  return header;
}

int CCommShmBuffer::ShmWrite(char* data, unsigned int len, void* /*reserved*/)
{
  if (!Usable() || (data == nullptr && len > 0) || len > INT_MAX || dataSize < sizeof(Record))
  {
    return -1;
  }
  const MutexHold threads(mutex);
  const CFileAutoLock processes(fileLock);
  const Header header = Load();
  const int area = static_cast<int>(dataSize);
  // A position that cannot be is a scribbled header: start over.
  const uint32_t start = header.writePos <= dataSize ? header.writePos : 0;
  wipe_torn(dataArea, dataSize, start, header.lastSeq);
  Record record = {recordMark, header.lastSeq + 1, len};
  int at = WriteShm(dataArea, static_cast<int>(start), area, reinterpret_cast<char*>(&record), sizeof record);
  // Should this process die in the copy, its record header is there and tells how far the damage may reach.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  unsigned int lost = 0;
  if (len > dataSize)
  {
    // Goes round the ring until only its end is left.
    lost = len - dataSize;
    at = static_cast<int>((static_cast<unsigned int>(at) + static_cast<uint64_t>(lost)) % dataSize);
  }
  at = WriteShm(dataArea, at, area, lost > 0 ? data + lost : data, static_cast<int>(len - lost));
  // Killed in between, the record stays and its number is given once more. The other way round, the next record
  // would overwrite one that was counted.
  store(Shared().writePos, static_cast<uint32_t>(at));
  store(Shared().lastSeq, record.seq);
  return static_cast<int>(len);
}

int CCommShmBuffer::UserRegisterEx(SHM_USERID_T id)
{
  if (!Usable() || !valid_id(id))
  {
    return -1;
  }
  const MutexHold threads(mutex);
  const CFileAutoLock processes(fileLock);
  const Header header = Load();
  Header& shared = Shared();
  Header::User& user = shared.users[id];
  if (header.users[id].id == static_cast<uint32_t>(id))
  {
    printf("----- userid:%d have exist!--------\n", id);
  }
  else
  {
    // Before the entry, as too high a count only makes a search longer.
    store(shared.userCount, header.userCount + 1);
  }
  store(user.lastSeq, header.lastSeq);
  store(user.readPos, header.writePos);
  store(user.id, static_cast<uint32_t>(id));
  return 0;
}

int CCommShmBuffer::UserUnRegister(int id)
{
  if (!Usable() || !valid_id(id))
  {
    return 0;
  }
  const MutexHold threads(mutex);
  const CFileAutoLock processes(fileLock);
  const Header header = Load();
  const int entry = header.FindCounted(id);
  if (entry == 0)
  {
    return 0;
  }
  Header& shared = Shared();
  Header::User& user = shared.users[entry];
  store(user.id, 0);
  store(user.readPos, 0);
  store(user.lastSeq, 0);
  store(shared.userCount, header.userCount - 1);
  return id;
}

int CCommShmBuffer::UserRead(int id, unsigned char* buf, unsigned int max)
{
  if (!Usable() || !valid_id(id))
  {
    return -1;
  }
  const MutexHold threads(mutex);
  const CFileAutoLock processes(fileLock);
  const Header header = Load();
  const int entry = header.Find(id, 10);
  if (entry == 0)
  {
    return -1;
  }
  const Header::User& user = header.users[entry];
  if (static_cast<int32_t>(header.lastSeq - user.lastSeq) <= 0)
  {
    return 0;
  }
  Record record;
  const int payload = read_record(dataArea, dataSize, user.readPos, record);
  if (payload < 0)
  {
    return -3;
  }
  if (record.length > (buf != nullptr ? max : 0))
  {
    return -2;
  }
  if (record.length > dataSize - sizeof record)
  {
    return -3;
  }
  const uint32_t torn = torn_bytes(dataArea, dataSize, header.writePos, header.lastSeq);
  const auto bytes = static_cast<uint32_t>(sizeof record + record.length);
  if (torn > 0 && overlap(dataSize, header.writePos, torn, user.readPos, bytes))
  {
    return -3;
  }
  const int next = ReadShm(dataArea, payload, static_cast<int>(dataSize), reinterpret_cast<char*>(buf),
                           static_cast<int>(record.length));
  // In this order a record may come twice to a reader that is killed here, which is better than none.
  store(Shared().users[entry].lastSeq, record.seq);
  store(Shared().users[entry].readPos, static_cast<uint32_t>(next));
  return static_cast<int>(record.length);
}

int CCommShmBuffer::GetLeftNums(int id)
{
  if (!Usable() || !valid_id(id))
  {
    return 0;
  }
  const MutexHold threads(mutex);
  const CFileAutoLock processes(fileLock);
  const Header header = Load();
  const int entry = header.FindCounted(id);
  if (entry == 0)
  {
    return 0;
  }
  const uint32_t read = header.users[entry].lastSeq;
  printf("-------userid:%d GetLeftNums %d %d -------\n", id, static_cast<int>(header.lastSeq),
         static_cast<int>(read));
  return std::max(0, static_cast<int>(header.lastSeq - read));
}
