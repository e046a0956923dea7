#include <devcomm/cache_file.h>

#include "internal/relaxed.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <unistd.h>

namespace
{

constexpr int kMaxData = 512;
constexpr int kDefaultLimit = 100000;
constexpr int32_t kUnread = 0x5A5A;

struct Item
{
  int32_t nMark;
  int32_t nTag;
  int32_t nLen;
  char data[kMaxData];
};
static_assert(sizeof(Item) == 524 && offsetof(Item, nTag) == 4 && offsetof(Item, nLen) == 8 &&
                  offsetof(Item, data) == 12,
              "file format");

constexpr off_t kMaxFileLength = 52399999; // a longer file is deleted when it is opened

off_t item_offset(uint32_t index)
{
  return static_cast<off_t>(sizeof(Item)) * index;
}

} // namespace

CCacheDataEX::CCacheDataEX() : CCacheDataEX(0) {}

CCacheDataEX::CCacheDataEX(int limit)
    : m_stream(nullptr), m_path(), m_FileHead(), m_limit(limit > 0 ? limit : kDefaultLimit)
{
}

CCacheDataEX::~CCacheDataEX()
{
  CloseCacheFile();
  m_path[0] = '\0';
}

void CCacheDataEX::SetFileName(char* path)
{
  if (path == nullptr)
  {
    return;
  }
  CAutoLock guard(&m_lock);
  if (m_path[0] != '\0' && strncmp(m_path, path, strlen(path)) == 0)
  {
    return; // a prefix names the same file: callers rely on it
  }
  CloseCacheFile();
  snprintf(m_path, sizeof m_path, "%s", path);
  printf("cache file path=%s\n", m_path);
}

int CCacheDataEX::OpenCacheFile()
{
  CloseCacheFile();
  const char* mode = "r+be";
  if (access(m_path, F_OK) != 0)
  {
    if (errno != ENOENT)
    {
      return -1;
    }
    mode = "w+be";
  }
  FILE* stream = fopen(m_path, mode);
  if (stream == nullptr)
  {
    return -1;
  }
  relaxed_store(m_stream, stream);
  InitialCacheFile(); // also when it deletes the file: callers see that at the next save or read
  return 0;
}

int CCacheDataEX::InitialCacheFile()
{
  if (m_stream == nullptr)
  {
    return -1;
  }
  off_t length = -1;
  if (fseeko(m_stream, 0, SEEK_END) == 0)
  {
    length = ftello(m_stream);
  }
  if (length < 0)
  {
    perror("fseek error:");
    DropFile();
    return -1;
  }
  const auto total = static_cast<uint32_t>(length / static_cast<off_t>(sizeof(Item)));
  relaxed_store(m_FileHead.ulTotalItemNum, total);
  printf("m_FileHead.ulTotalItemNum = %d\n", static_cast<int>(total));
  if (length > kMaxFileLength)
  {
    printf("file is too big FileLen = %u\n", static_cast<unsigned int>(length));
    DropFile();
    return -1;
  }

  rewind(m_stream);
  Item item;
  uint32_t consumed = 0;
  while (consumed < total && fread(&item, sizeof item, 1, m_stream) == 1 && item.nMark != kUnread)
  {
    ++consumed;
  }
  relaxed_store(m_FileHead.ulReadItemNum, consumed);
  printf("m_FileHead.ulReadItemNum = %d\n", static_cast<int>(consumed));
  return 0;
}

int CCacheDataEX::saveCacheData(int tag, int len, const char* data)
{
  CAutoLock guard(&m_lock);
  if (len > kMaxData)
  {
    printf("data exceed the max length: %d(%d)\n", len, kMaxData);
    return -1;
  }
  if (len < 0 || (data == nullptr && len > 0) || !OpenWhenClosed())
  {
    return -1;
  }
  // Seeking before each operation, as a stream must between reading and writing, also writes its buffer out.
  if (fseeko(m_stream, item_offset(m_FileHead.ulTotalItemNum), SEEK_SET) != 0)
  {
    puts("cache file: seek failed!");
    CloseCacheFile();
    return -1;
  }
  Item item;
  item.nMark = kUnread;
  item.nTag = tag;
  item.nLen = len;
  const auto used = static_cast<size_t>(len);
  if (used > 0)
  {
    memcpy(item.data, data, used);
  }
  memset(item.data + used, 0, sizeof item.data - used);
  if (fwrite(&item, sizeof item, 1, m_stream) != 1)
  {
    perror("fwrite Item error:");
    CloseCacheFile();
    return -1;
  }
  relaxed_store(m_FileHead.ulTotalItemNum, m_FileHead.ulTotalItemNum + 1);
  return 0;
}

int CCacheDataEX::readCacheData(int& tag, int& len, char* data)
{
  CAutoLock guard(&m_lock);
  if (data == nullptr || !OpenWhenClosed() || m_FileHead.ulReadItemNum >= m_FileHead.ulTotalItemNum)
  {
    return -1;
  }
  const off_t offset = item_offset(m_FileHead.ulReadItemNum);
  if (fseeko(m_stream, offset, SEEK_SET) != 0)
  {
    printf("fseek failed: readnum = %d\n", static_cast<int>(m_FileHead.ulReadItemNum));
    DropFile();
    return -1;
  }
  Item item;
  if (fread(&item, sizeof item, 1, m_stream) != 1)
  {
    perror("fread Item error:");
    CloseCacheFile();
    return -1;
  }
  tag = item.nTag;
  len = std::clamp(item.nLen, 0, kMaxData);
  memcpy(data, item.data, static_cast<size_t>(len));

  item.nMark = 0;
  relaxed_store(m_FileHead.ulReadItemNum, m_FileHead.ulReadItemNum + 1);
  if (fseeko(m_stream, offset, SEEK_SET) == 0)
  {
    fwrite(&item, sizeof item, 1, m_stream);
  }
  return 0;
}

int CCacheDataEX::checkCacheData()
{
  if (relaxed_load(m_stream) == nullptr)
  {
    return -1;
  }
  return static_cast<int>(relaxed_load(m_FileHead.ulTotalItemNum) - relaxed_load(m_FileHead.ulReadItemNum));
}

int CCacheDataEX::CloseCacheFile()
{
  if (m_stream != nullptr)
  {
    fclose(m_stream);
    relaxed_store(m_stream, static_cast<FILE*>(nullptr));
  }
  relaxed_store(m_FileHead.ulTotalItemNum, 0U);
  relaxed_store(m_FileHead.ulReadItemNum, 0U);
  return 0;
}

int CCacheDataEX::RemoveCacheFile()
{
  if (m_stream != nullptr || access(m_path, F_OK) != 0)
  {
    return -1;
  }
  printf("========>>>Delete cache file %s\n", m_path);
  return unlink(m_path);
}

bool CCacheDataEX::OpenWhenClosed()
{
  if (m_stream == nullptr)
  {
    OpenCacheFile();
  }
  return m_stream != nullptr;
}

// A file that cannot be used is deleted, so that the next save begins a new one.
void CCacheDataEX::DropFile()
{
  CloseCacheFile();
  RemoveCacheFile();
}
