#pragma once

#include <devcomm/block_pool.h>
#include <devcomm/frame_buffer.h>

#include <pthread.h>

/// One stored frame. Its payload lies in one piece in the area.
struct CCommBuffer::Node
{
  uint64_t timeStamp;
  uint32_t frameClass;
  uint32_t frameType;
  uint32_t length;
  uint32_t offset; // of the payload in the area
  uint32_t seq;    // one more than that of the frame before
  Node* prev;
  Node* next;
};

/// One reader.
struct CCommBuffer::CommBufUser
{
  uint32_t classMask;
  uint32_t typeMask;
  int32_t id;
  uint32_t lastSeq; // seq of lastNode when it was read
  Node* lastNode;   // null: has read nothing; to be followed only while State::Holds(lastSeq)
  CommBufUser* prev;
  CommBufUser* next;
};

struct CCommBuffer::State
{
  pthread_mutex_t mutex; // guards everything below
  unsigned char* data;   // null: the buffer is of no use, and the mutex is not initialised
  int32_t size;
  Node* head; // oldest frame; the list is in age order, with seq rising by one
  Node* tail; // newest frame
  int32_t userCount;
  int32_t nextUserId;
  CommBufUser* userHead; // in the order of registration
  CommBufUser* userTail;
  fixed_mem_t* pool; // lends the nodes; frames go in the order they came, as the pool wants it
  int (*logFunc)(unsigned int, const char*, ...);
  int (*overrunFunc)(int);

  /// Whether the frame of that number is still stored. Right also where the numbers run over 2^32.
  bool Holds(uint32_t seq) const
  {
    return tail != nullptr && seq - head->seq <= tail->seq - head->seq;
  }
};
