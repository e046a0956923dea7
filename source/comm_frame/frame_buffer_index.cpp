// Where a new frame goes in the area, and which old frames it drops. All of it runs under the buffer's mutex.

#include "comm_frame/frame_buffer_state.h"

// Takes a node for a frame that follows prev; null when the pool has none left.
CCommBuffer::Node* CCommBuffer::AddNode(FrameInfo_t* info, unsigned long offset, Node* prev)
{
  auto* node = static_cast<Node*>(fix_mem_get(state->pool));
  if (node == nullptr)
  {
    return nullptr;
  }
  node->timeStamp = info->timeStamp;
  node->frameClass = info->frameClass;
  node->frameType = info->frameType;
  node->length = info->length;
  node->offset = static_cast<uint32_t>(offset);
  node->seq = prev != nullptr ? prev->seq + 1 : 1;
  node->prev = prev;
  node->next = nullptr;
  return node;
}

// Drops the oldest frame of two or more.
void CCommBuffer::DropOldest()
{
  Node* oldest = state->head;
  state->head = oldest->next;
  state->head->prev = nullptr;
  fix_mem_put(state->pool, oldest);
}

// Drops frames from the oldest on while they start in from..to, or in to..from around the end of the area when
// from is above to. Both bounds are inclusive: a frame that starts at `to` goes as well, though none of its
// bytes are needed; how many frames stay readable depends on it. The newest frame always stays.
void CCommBuffer::FreeNode(unsigned long from, unsigned long to)
{
  while (state->head != state->tail)
  {
    const unsigned long start = state->head->offset;
    const bool inside = from <= to ? from <= start && start <= to : start <= to || start >= from;
    if (!inside)
    {
      return;
    }
    DropOldest();
  }
}

// Finds room for the frame behind the newest one, or at the start of the area, drops what lies there and appends
// a node for it. Live frames never overlap: in age order they fill one stretch of the area, or one up to its end
// and one from its start.
int CCommBuffer::RefreshIndex(FrameInfo_t* info, unsigned long* offset)
{
  const unsigned long size = static_cast<unsigned long>(state->size);
  const unsigned long length = info->length;
  if (length > size)
  {
    return -1;
  }
  Node* const newest = state->tail;
  if (newest == nullptr)
  {
    *offset = 0;
    state->head = state->tail = AddNode(info, 0, nullptr);
    return state->tail != nullptr ? 0 : -1;
  }

  const unsigned long end = static_cast<unsigned long>(newest->offset) + newest->length;
  const bool alone = state->head == newest;
  // A frame that would end exactly at the end of the area goes to the start, except behind a single frame.
  const bool wraps = alone ? length > size - end : length >= size - end;
  // An empty frame behind several counts as one that goes all the way round; that is meant.
  const bool dropsAll = length == 0 ? !alone : wraps && newest->offset <= length;
  const unsigned long newEnd = wraps || dropsAll ? length : end + length;
  if (dropsAll)
  {
    while (state->head != newest)
    {
      DropOldest();
    }
  }
  else if (!wraps || state->head->offset >= end || state->head->offset < newEnd)
  {
    FreeNode(end, newEnd);
  }

  *offset = newEnd - length;
  Node* node = AddNode(info, *offset, newest);
  if (node == nullptr)
  {
    FreeNode(state->head->offset, static_cast<unsigned long>(state->head->offset) + state->head->length);
    node = AddNode(info, *offset, newest);
  }
  if (node == nullptr)
  {
    return -1;
  }
  newest->next = node;
  state->tail = node;
  if (dropsAll)
  {
    DropOldest();
  }
  return 0;
}
