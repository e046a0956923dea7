// How readers move through the frames and take copies.

#include "comm_frame/frame_buffer_state.h"

#include "internal/mutex_hold.h"

#include <cstring>

/// What one kind of read says while it positions a reader.
struct CCommBuffer::Reading
{
  const char* tailMessage; // the reader lost frames and goes on at the newest
  const char* headMessage; // a new reader starts at the oldest; null: silent
  int overrunCode;
  bool (*wanted)(const Node&, const CommBufUser&, uint32_t mask); // null: every frame
  bool framed;                                                    // a header goes before each payload
};

namespace
{
constexpr unsigned int logLevel = 2;
constexpr uint32_t recordMark = 0xAA55AA55U;

struct RecordHeader
{
  uint64_t timeStamp;
  uint32_t mark;
  uint32_t frameType;
  uint32_t frameClass;
  uint32_t length;
};
static_assert(sizeof(RecordHeader) == 24, "written to the caller's buffer as it is");

bool bit_set(uint32_t mask, uint32_t bit)
{
  return bit < 32 && (mask >> bit & 1U) != 0;
}

// MultiReadEx says the same as MultiRead.
constexpr const char* multiTail = "CCommBuffer::MultiRead: tail: %lld\n";
constexpr const char* multiHead = "CCommBuffer::MultiRead: head: %lld\n";
} // namespace

CCommBuffer::CommBufUser* CCommBuffer::FindUser(int id) const
{
  CommBufUser* user = state->userHead;
  while (user != nullptr && user->id != id)
  {
    user = user->next;
  }
  return user;
}

// Moves the reader to the next frame it is to receive; null when there is none.
CCommBuffer::Node* CCommBuffer::NextFrame(CommBufUser& user, const Reading& reading)
{
  const bool fresh = user.lastNode == nullptr;
  const bool lapped = !fresh && !state->Holds(user.lastSeq);
  Node* node = fresh ? state->head : lapped ? state->tail : user.lastNode->next;
  if (node == nullptr)
  {
    return nullptr;
  }
  user.lastNode = node;
  user.lastSeq = node->seq;

  const char* message = lapped ? reading.tailMessage : fresh ? reading.headMessage : nullptr;
  if (message != nullptr && state->logFunc != nullptr)
  {
    state->logFunc(logLevel, message, static_cast<long long>(node->timeStamp));
  }
  if (lapped && state->overrunFunc != nullptr)
  {
    state->overrunFunc(reading.overrunCode);
  }
  return node;
}

// Returns where the payload ends in buf.
unsigned char* CCommBuffer::CopyFrame(const Node& node, unsigned char* buf, FrameInfo_t& info) const
{
  memcpy(buf, state->data + node.offset, node.length);
  info = {node.timeStamp, node.frameType, node.frameClass, node.length};
  return buf + node.length;
}

int CCommBuffer::Read(int id, unsigned char* buf, FrameInfo_t* info)
{
  static constexpr Reading reading = {"CCommBuffer::Read: tail: %lld\n", nullptr, 0, nullptr, false};
  if (!Usable() || buf == nullptr || info == nullptr)
  {
    return 0;
  }
  const MutexHold hold(state->mutex);
  CommBufUser* user = FindUser(id);
  const Node* node = user != nullptr ? NextFrame(*user, reading) : nullptr;
  if (node == nullptr)
  {
    return 0;
  }
  CopyFrame(*node, buf, *info);
  return 1;
}

// Returns where the payload goes.
unsigned char* CCommBuffer::PutHeader(const Node& node, unsigned char* to)
{
  const RecordHeader header = {node.timeStamp, recordMark, node.frameType, node.frameClass, node.length};
  memcpy(to, &header, sizeof header);
  return to + sizeof header;
}

int CCommBuffer::ReadMany(int id, unsigned char* buf, FrameInfo_t* infos, int max, const Reading& reading,
                          uint32_t mask, int* outLen)
{
  if (outLen != nullptr)
  {
    *outLen = 0;
  }
  if (!Usable() || buf == nullptr || infos == nullptr)
  {
    return 0;
  }
  const MutexHold hold(state->mutex);
  CommBufUser* user = FindUser(id);
  if (user == nullptr)
  {
    return 0;
  }
  unsigned char* to = buf;
  int count = 0;
  while (const Node* node = NextFrame(*user, reading))
  {
    if (reading.wanted != nullptr && !reading.wanted(*node, *user, mask))
    {
      continue;
    }
    if (reading.framed)
    {
      to = PutHeader(*node, to);
    }
    to = CopyFrame(*node, to, infos[count]);
    // Asked only after a copy: a max below 1 still yields one frame.
    if (++count >= max)
    {
      break;
    }
  }
  if (outLen != nullptr)
  {
    *outLen = static_cast<int>(to - buf);
  }
  return count;
}

int CCommBuffer::MultiRead(int id, unsigned char* buf, FrameInfo_t* infos, int max)
{
  static constexpr Reading reading = {multiTail, multiHead, 1, nullptr, false};
  return ReadMany(id, buf, infos, max, reading, 0, nullptr);
}

int CCommBuffer::MultiReadEx(int id, unsigned char* buf, FrameInfo_t* infos, int max, unsigned int classMask,
                             int* outLen)
{
  static constexpr Reading reading = {multiTail, multiHead, 1,
                                      [](const Node& node, const CommBufUser&, uint32_t mask)
                                      { return bit_set(mask, node.frameClass); },
                                      true};
  return ReadMany(id, buf, infos, max, reading, classMask, outLen);
}

int CCommBuffer::MapRead(int id, unsigned char* buf, FrameInfo_t* infos, int max)
{
  static constexpr Reading reading = {"CCommBuffer::MapRead: tail: %lld\n", nullptr, 2,
                                      [](const Node& node, const CommBufUser& user, uint32_t)
                                      {
                                        return bit_set(user.classMask, node.frameClass & 0xFFU) &&
                                               bit_set(user.typeMask, node.frameType & 0xFFU);
                                      },
                                      false};
  return ReadMany(id, buf, infos, max, reading, 0, nullptr);
}
