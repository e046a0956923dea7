#pragma once

/// @file
/// A ring of records in a System V shared-memory segment, for one writing process and up to ten readers.
///
/// The segment (32-bit little-endian fields) is the same for every process, whatever its word size:
///
///     0    size of the segment         12  sequence number of the last record, 0: none
///     4    size of this header, 152    16  readers registered
///     8    where the next record goes  20  11 reader entries of 12 bytes (entry 0 is not used):
///                                          id or 0, read position, sequence number consumed last
///     152  the ring: records of mark 0xE0E0FEF8, sequence number, payload length, payload; a record may run
///          over the end of the ring at any byte
///
/// Segments are never removed by the library: they survive every process, and so do the readers in them.

#include <devcomm/export.h>

#include <cstdint>

#include <pthread.h>

class CFileLock;

/// Names a segment and its lock file; chosen by the application.
typedef int SHM_IPC_KEY_T;

/// A reader, 1 to 10.
typedef int SHM_USERID_T;

/// One process's hold on a ring.
///
/// Every member runs under the exclusive lock of the file "/tmp/ShmBuf_lock_" + key in decimal, between processes
/// and between objects, and under a mutex between the threads that share one object. A child of fork shares its
/// parent's descriptor, and so excludes nothing: let it make an object of its own. The file must stay while the ring
/// is in use: who opens a new one is not excluded by those who have the old one.
///
/// Nothing found in a segment is trusted: whatever stands there, no member reads or writes outside of it.
/// An object without a segment is not usable, and every member says so by its result. One that may not open its lock
/// file, another user's for example, works but excludes nobody.
class DEVCOMM_API CCommShmBuffer
{
public:
  /// Attaches the segment of that key, or creates it. A segment whose sizes cannot be is not used.
  ///
  /// @param size  bytes of a new segment, header included, at least 152; below 1: 65536. An existing segment
  ///              keeps its own size
  CCommShmBuffer(SHM_IPC_KEY_T key, int size);

  /// Detaches; the segment stays.
  ~CCommShmBuffer();

  CCommShmBuffer(const CCommShmBuffer&) = delete;
  CCommShmBuffer& operator=(const CCommShmBuffer&) = delete;

  /// Appends a record over the oldest ones. Readers are not looked at.
  ///
  /// @param reserved  not used
  /// @return len; -1 when not usable, for 2^31 bytes and more, or when the ring is shorter than a record's 12
  ///         bytes of header. A record that does not fit the ring is counted and overwrites itself: readers
  ///         get -3
  int ShmWrite(char* data, unsigned int len, void* reserved);

  /// Registers a reader for the records written from now on. An id that is registered already starts anew, and a
  /// line on standard output says so.
  ///
  /// @return 0; -1 for an id outside 1 to 10, or when not usable
  int UserRegisterEx(SHM_USERID_T id);

  /// Removes a reader. Only the first N entries are searched, N being the number of readers: an id above N is
  /// not found. Callers rely on it.
  ///
  /// @return the id; 0 when it was not found, or when not usable
  int UserUnRegister(int id);

  /// Takes a reader's next record.
  ///
  /// @param buf  room for max bytes; null has none
  /// @return payload bytes; 0: nothing new, or an empty record; -1: no such reader, or not usable; -2: longer
  ///         than max, try again with more room; -3: no whole record there, as the writer has overtaken the
  ///         reader or died over it: register the id again to go on at the newest. After -2 and -3 the reader
  ///         stays where it was
  int UserRead(int id, unsigned char* buf, unsigned int max);

  /// Tells the records a reader has not consumed, and prints the count's terms on standard output. Searches as
  /// UserUnRegister does.
  ///
  /// @return 0 and more; 0 also for an unknown reader and when not usable
  int GetLeftNums(int id);

private:
  struct Header;

  void Attach();
  bool Usable() const;
  Header Load() const;
  Header& Shared() const;

  CFileLock* fileLock;
  int shmId;      // -1 until known
  char* base;     // null: not attached
  char* dataArea; // base + 152
  unsigned int shmSize;
  unsigned int dataSize; // shmSize - 152
  pthread_mutex_t mutex;
};

/// Gets the segment of a key, making it with mode 0666 when there is none. @return its id, or -1
DEVCOMM_API int GetShm(int key, int size);

/// Attaches a segment. @return its address, or 0
DEVCOMM_API intptr_t AtShm(int shmid);

/// Detaches a segment. @return 0, or -1
DEVCOMM_API int DtShm(char* addr);

/// Copies n bytes into a ring of areaSize bytes at pos, running over its end to its start.
///
/// @return the position after them, areaSize when that is exactly the end; -1 for null pointers, a negative pos
///         or n, a pos above areaSize, or an n that would run over the end twice
DEVCOMM_API int WriteShm(char* area, int pos, int areaSize, char* src, int n);

/// Copies n bytes out of a ring; the mirror image of WriteShm, with the same results.
DEVCOMM_API int ReadShm(char* area, int pos, int areaSize, char* dst, int n);

/// WriteShm under the exclusive flock of a descriptor.
///
/// @param fd  the caller's; closed when it cannot be locked
/// @return 0 (not the position), or -1
DEVCOMM_API int WriteLockShm(int fd, char* area, int pos, int areaSize, char* src, int n);

/// ReadShm under the exclusive flock of a descriptor; as WriteLockShm.
DEVCOMM_API int ReadLockShm(int fd, char* area, int pos, int areaSize, char* dst, int n);
