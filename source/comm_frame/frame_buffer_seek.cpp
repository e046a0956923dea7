// Where readers stand: moving them back, and telling how far behind they are.

#include "comm_frame/frame_buffer_state.h"

#include "internal/mutex_hold.h"

namespace
{
constexpr uint64_t microsPerSecond = 1000000;

unsigned int whole_seconds(uint64_t micros)
{
  return static_cast<unsigned int>(static_cast<int64_t>(micros) / static_cast<int64_t>(microsPerSecond));
}
} // namespace

int CCommBuffer::Seek(int id, int byTime, unsigned int amount)
{
  if (!Usable())
  {
    return -1;
  }
  const MutexHold hold(state->mutex);
  CommBufUser* user = FindUser(id);
  if (user == nullptr || state->tail == nullptr)
  {
    return -1;
  }
  Node* node = state->tail;
  const auto span = static_cast<int64_t>(amount * microsPerSecond);
  for (unsigned int passed = 0; amount > 0 && node->prev != nullptr;)
  {
    node = node->prev;
    passed++;
    const auto age = static_cast<int64_t>(state->tail->timeStamp - node->timeStamp);
    if (byTime != 0 ? age >= span : passed == amount)
    {
      break;
    }
  }
  user->lastNode = node;
  user->lastSeq = node->seq;
  return 0;
}

int CCommBuffer::GetLeft(int id, unsigned int* oldestSec, unsigned int* newestSec)
{
  if (oldestSec != nullptr)
  {
    *oldestSec = 0;
  }
  if (newestSec != nullptr)
  {
    *newestSec = 0;
  }
  if (!Usable())
  {
    return -1;
  }
  const MutexHold hold(state->mutex);
  const CommBufUser* user = FindUser(id);
  if (user == nullptr)
  {
    return -1;
  }
  if (state->tail == nullptr)
  {
    return 0;
  }
  if (oldestSec != nullptr)
  {
    *oldestSec = whole_seconds(state->head->timeStamp);
  }
  if (newestSec != nullptr)
  {
    *newestSec = whole_seconds(state->tail->timeStamp);
  }
  if (user->lastNode == nullptr || !state->Holds(user->lastSeq))
  {
    return 0;
  }
  return static_cast<int>(state->tail->seq - user->lastSeq + 1);
}
