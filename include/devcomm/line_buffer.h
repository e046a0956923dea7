#pragma once

/// @file
/// A ring of bytes with partial reads and writes, for streams that are consumed in pieces.

#include <devcomm/export.h>

#include <pthread.h>

/// First in, first out, of fixed capacity; one allocation, in the constructor.
///
/// Threads may share it: Read, Write, PreRead, Skip and GetLeft exclude each other. GetUsed and ClearAll take no
/// lock: GetUsed may lag behind, and after a ClearAll that ran beside another call the bytes in the ring may be
/// any (never more than its capacity). Every copy is bounded by the capacity and by n.
class DEVCOMM_API CLineBufMng
{
public:
  /// @param size  capacity in bytes; 0, or memory running out, leaves a ring that holds nothing
  explicit CLineBufMng(unsigned int size);
  ~CLineBufMng();
  CLineBufMng(const CLineBufMng&) = delete;
  CLineBufMng& operator=(const CLineBufMng&) = delete;

  /// Moves up to n of the oldest bytes to buf.
  ///
  /// @return the bytes moved, 0 when there are none
  unsigned int Read(char* buf, unsigned int n);

  /// Appends as many of the n bytes as fit.
  ///
  /// @return the bytes stored, 0 when the ring is full: the caller checks the count
  unsigned int Write(char* buf, unsigned int n);

  /// Copies as Read does and consumes nothing.
  unsigned int PreRead(char* buf, unsigned int n);

  /// Consumes as Read does without copying.
  ///
  /// @return the bytes dropped
  unsigned int Skip(unsigned int n);

  /// @return bytes stored, read without the lock
  unsigned int GetUsed();

  /// @return bytes of free room
  int GetLeft();

  /// Forgets every byte, without the lock.
  ///
  /// @return 0
  int ClearAll();

private:
  unsigned int CopyOut(char* buf, unsigned int n) const;
  void Consume(unsigned int n);

  pthread_mutex_t mutex;
  char* data;
  unsigned int size;
  unsigned int used; // bytes from readPos to writePos, wrapping at size
  unsigned int readPos;
  unsigned int writePos;
};
