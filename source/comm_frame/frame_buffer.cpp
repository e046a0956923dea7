#include "comm_frame/frame_buffer_state.h"

#include "internal/mutex_hold.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/time.h>

CCommBuffer::CCommBuffer(int size, int (*logFunc)(unsigned int, const char*, ...), int (*overrunFunc)(int))
    : state(new (std::nothrow) State())
{
  if (state == nullptr)
  {
    return;
  }
  state->logFunc = logFunc;
  state->overrunFunc = overrunFunc;
  if (size < 1)
  {
    return;
  }
  state->data = static_cast<unsigned char*>(calloc(1, static_cast<size_t>(size)));
  if (state->data == nullptr)
  {
    return;
  }
  state->size = size;
  pthread_mutex_init(&state->mutex, nullptr);
  state->pool = fix_mem_init(static_cast<int>(sizeof(Node)), size / 1024);
}

CCommBuffer::~CCommBuffer()
{
  if (state == nullptr)
  {
    return;
  }
  fix_mem_quit(state->pool);
  free(state->data);
  for (CommBufUser* user = state->userHead; user != nullptr;)
  {
    CommBufUser* next = user->next;
    delete user;
    user = next;
  }
  delete state;
}

bool CCommBuffer::Usable() const
{
  return state != nullptr && state->data != nullptr;
}

int CCommBuffer::Register(unsigned long classMask, unsigned long typeMask)
{
  auto* user = Usable() ? new (std::nothrow) CommBufUser() : nullptr;
  if (user == nullptr)
  {
    return -1;
  }
  user->classMask = static_cast<uint32_t>(classMask);
  user->typeMask = static_cast<uint32_t>(typeMask);

  const MutexHold hold(state->mutex);
  user->id = state->nextUserId++;
  user->prev = state->userTail;
  (user->prev != nullptr ? user->prev->next : state->userHead) = user;
  state->userTail = user;
  state->userCount++;
  return user->id;
}

int CCommBuffer::Unregister(int id)
{
  if (!Usable())
  {
    return 0;
  }
  const MutexHold hold(state->mutex);
  CommBufUser* user = FindUser(id);
  if (user == nullptr)
  {
    return 0;
  }
  (user->prev != nullptr ? user->prev->next : state->userHead) = user->next;
  (user->next != nullptr ? user->next->prev : state->userTail) = user->prev;
  delete user;
  state->userCount--;
  return 0;
}

int CCommBuffer::GetUsrCount()
{
  if (!Usable())
  {
    return 0;
  }
  const MutexHold hold(state->mutex);
  return state->userCount;
}

int CCommBuffer::PutData(unsigned char* data, FrameInfo_t* info)
{
  if (!Usable() || info == nullptr || (data == nullptr && info->length > 0))
  {
    return 0;
  }
  const MutexHold hold(state->mutex);
  if (info->timeStamp == 0)
  {
    timeval now{};
    gettimeofday(&now, nullptr);
    info->timeStamp = static_cast<uint64_t>(now.tv_sec) * 1000000U + static_cast<uint64_t>(now.tv_usec);
  }
  unsigned long offset = 0;
  if (RefreshIndex(info, &offset) == 0 && data != nullptr)
  {
    memcpy(state->data + offset, data, info->length);
  }
  return 0;
}

int CCommBuffer::Write(FrameInfo_t* info, char* data, void* buffer)
{
  if (buffer != nullptr)
  {
    static_cast<CCommBuffer*>(buffer)->PutData(reinterpret_cast<unsigned char*>(data), info);
  }
  return 0;
}
