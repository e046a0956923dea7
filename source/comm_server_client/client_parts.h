#pragma once

#include <devcomm/byte_buffer.h>
#include <devcomm/worker_thread.h>

#include <new>
#include <pthread.h>

// What the records of a TCP connection and of a UDP service both consist of: a worker thread, two byte buffers and
// the lock of the one to send.

/// Fills in the parts of a fresh record.
///
/// @return false when memory is short; free_client_parts takes back what there is
template <typename Record>
bool make_client_parts(Record* record)
{
  pthread_mutex_init(&record->sendLock, nullptr);
  record->sock = -1;
  record->thread = ThreadInit();
  record->recvBuf = new (std::nothrow) SimpleBufMng();
  record->sendBuf = new (std::nothrow) SimpleBufMng();
  return record->thread != nullptr && record->recvBuf != nullptr && record->sendBuf != nullptr;
}

/// Waits for somebody who may be queueing his last bytes at this moment, then frees the parts.
template <typename Record>
void free_client_parts(Record* record)
{
  pthread_mutex_lock(&record->sendLock);
  pthread_mutex_unlock(&record->sendLock);
  delete record->recvBuf;
  delete record->sendBuf;
  pthread_mutex_destroy(&record->sendLock);
  ThreadUninit(record->thread);
}
