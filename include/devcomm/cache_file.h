#pragma once

/// @file
/// Two queues of small records that survive restarts: a ring of fixed size, and a file that grows.
///
///     CCacheData events;
///     events.setCacheFile("events", 0, 512);
///     events.openCacheFile("/mnt/sd/cache");
///     events.saveCacheData(7, 5, "hello", true);
///
/// Neither calls fsync: what a process wrote survives the process; what survives a loss of power is up to the
/// file system. Two objects on one file, in one process or in two, are not coordinated. Integers in both
/// files are 32 bits wide and little-endian.

#include <devcomm/export.h>
#include <devcomm/lock.h>

#include <cstdint>
#include <cstdio>

/// A ring of 1032-byte slots behind a 44-byte header. The file is made at its full length, 44 + count x 1032
/// bytes (sparse where the file system can); a full ring drops its oldest record, so that count - 1 records
/// stay.
///
/// | offset | size | header | | offset | size | slot |
/// |---|---|---|---|---|---|---|
/// | 0 | 4 | 0xA1B2C3D5 | | 0 | 4 | the caller's tag |
/// | 4 | 4 | slot to read next | | 4 | 4 | bytes of data, 0..1024 |
/// | 8 | 4 | slot to write next | | 8 | 1024 | data, then zeroes |
/// | 12 | 4 | slots | | | | |
/// | 16 | 4 | 1032 | | | | |
/// | 20 | 24 | zero | | | | |
///
/// The ring is empty where both positions are the same. After a restart the positions are those of the last
/// header written: by writeHead true, by updateHead, or when the file was made. Records saved later are gone,
/// records read later come again. Whoever saves without the header for so long that the ring comes round to
/// records the file's header still lists may, after a crash, read newer records in their places.
///
/// A failing read or write closes the file; later calls do nothing until it is opened again. Every step and
/// failure prints a line on standard output.
///
/// Threads: openCacheFile, saveCacheData, readCacheData and updateHead exclude each other, and any thread may
/// call them and CheckCacheFileExist. The rest belongs to the owner, while no other thread is inside the
/// object.
class DEVCOMM_API CCacheData
{
public:
  static constexpr int CACHE_HEAD_LENGTH = 44;                   ///< bytes
  static constexpr unsigned int CACHE_FILE_VERSION = 0xA1B2C3D5; ///< first word of a file

  /// Closed and nameless, with 2048 slots.
  CCacheData();

  /// Closes the file, without a header write.
  virtual ~CCacheData();

  CCacheData(const CCacheData&) = delete;
  CCacheData& operator=(const CCacheData&) = delete;

  /// Chooses the file's name and size for the next openCacheFile.
  ///
  /// @param name     copied, cut to 31 characters; null keeps the name
  /// @param slotLen  ignored: slots have 1032 bytes
  /// @param count    slots; 0 or less keeps the count
  void setCacheFile(const char* name, int slotLen, int count);

  /// Opens the file in a directory, or makes it; an open one is closed first. A file whose length or header
  /// does not fit this object's count, or whose positions lie outside the ring, is made afresh, empty.
  ///
  /// @param dir  must exist, and contain "/mnt/sd": caches lie on the storage card. Path and name together
  ///             are cut to 255 characters
  /// @return the descriptor of a file that was there or was replaced; 0 for a new file; negative on failure
  int openCacheFile(const char* dir);

  /// Appends a record; nothing happens when no file is open.
  ///
  /// @param tag        returned unchanged by readCacheData
  /// @param len        bytes, 0..1024; others are refused
  /// @param data       copied; null only with len 0
  /// @param writeHead  true: the new positions reach the file too
  void saveCacheData(int tag, int len, const char* data, bool writeHead);

  /// Takes the oldest record.
  ///
  /// @param tag        as saved
  /// @param len        bytes; a length a damaged slot cannot hold is cut to 0 or 1024
  /// @param data       room for 1024 bytes, of which len are written
  /// @param writeHead  true: the new positions reach the file too; a header that could not be written closes
  ///                   the file, and the record is delivered all the same
  /// @return 1; 0 when the ring is empty, no file is open, data is null or reading failed, and the arguments
  ///         are untouched
  int readCacheData(int& tag, int& len, char* data, bool writeHead);

  /// Writes the positions to the file, if one is open.
  void updateHead();

  /// @return 1 when a file is open, else 0
  int CheckCacheFileExist();

  /// Makes the file of the last openCacheFile afresh, empty; an open one is closed first. It gets mode 0200,
  /// for ever and on purpose: a process without the rights of root makes such a file and cannot open it
  /// again.
  ///
  /// @return the descriptor, or -1
  int initCacheFile();

  /// Closes the file, if one is open, without a header write.
  void closeCacheFile();

private:
  struct CacheHead
  {
    uint32_t nVersion;
    int32_t nReadPos;
    int32_t nWritePos;
    int32_t nCacheCount;
    int32_t nCacheLen;
    uint8_t reserved[24];
  };

  int OpenExisting();
  bool Accept(const CacheHead& head) const;
  void WriteHead();
  int32_t After(int32_t position) const;

  char m_path[256];
  char m_name[32];
  int32_t m_slotLen;
  int32_t m_slotCount; // for the next open; an open file goes by its header
  CLock m_lock;
  int32_t m_fd;
  CacheHead m_CacheHead;
};

/// A file of 524-byte records that grows. Reading marks a record consumed in place; opening finds the first
/// record that is not.
///
/// | offset | size | record |
/// |---|---|---|
/// | 0 | 4 | 0x5A5A: not read yet; any other value: consumed |
/// | 4 | 4 | the caller's tag |
/// | 8 | 4 | bytes of data, 0..512 |
/// | 12 | 512 | data; this library adds zeroes |
///
/// The file never shrinks. One of 100,000 records or more is deleted when it is opened, with what was not
/// read: let RemoveCacheFile delete it in good time. A last record that is not whole is overwritten by the
/// next one saved.
///
/// Nothing is flushed on purpose: a record saved, or a mark of one read, reaches the file with the next save
/// or read or when the file is closed, so that a process that is killed loses at most the last of each. A
/// card that is full is therefore noticed by the operation after; when that is a read, the file is deleted as
/// one that cannot be read.
///
/// Threads: SetFileName, saveCacheData and readCacheData exclude each other, and any thread may call them and
/// checkCacheData. The rest belongs to the owner, while no other thread is inside the object. Steps and
/// failures print lines on standard output, some with the error's text on standard error.
class DEVCOMM_API CCacheDataEX
{
public:
  CCacheDataEX();

  /// @param limit  kept when above 0 (else 100000), and not enforced
  explicit CCacheDataEX(int limit);

  /// Closes the file.
  ~CCacheDataEX();

  CCacheDataEX(const CCacheDataEX&) = delete;
  CCacheDataEX& operator=(const CCacheDataEX&) = delete;

  /// Changes the file; the next save or read opens or makes it.
  ///
  /// @param path  copied, cut to 127 characters. Null, or a prefix of the path already set, changes nothing:
  ///              callers may name the file shorter and go on in it
  void SetFileName(char* path);

  /// Opens or makes the file now, and reads it through; an open one is closed first.
  ///
  /// @return 0, also when the file turned out too big and was deleted; -1 when it cannot be opened
  int OpenCacheFile();

  /// Reads the open file through: counts its records and finds the first to read. OpenCacheFile does it.
  ///
  /// @return 0; -1 when no file is open, or it could not be measured or was too big and has been deleted
  int InitialCacheFile();

  /// Appends a record.
  ///
  /// @param tag   returned unchanged by readCacheData
  /// @param len   bytes, 0..512; others are refused
  /// @param data  copied; null only with len 0
  /// @return 0; -1 when refused or writing failed, which closes the file
  int saveCacheData(int tag, int len, const char* data);

  /// Takes the oldest record that is not consumed.
  ///
  /// @param tag   as saved
  /// @param len   bytes; a length a damaged record cannot hold is cut to 0 or 512
  /// @param data  room for 512 bytes, of which len are written
  /// @return 0, also when the mark could not be written; -1 when there is nothing to read, data is null, or
  ///         reading failed, which closes the file; tag, len and data are untouched then
  int readCacheData(int& tag, int& len, char* data);

  /// @return records not read yet; -1 when no file is open
  int checkCacheData();

  /// @return 0
  int CloseCacheFile();

  /// Deletes the file, with what was not read.
  ///
  /// @return 0; -1 while the file is open, and when it is not there, which callers must not take for a
  ///         failure
  int RemoveCacheFile();

private:
  struct FileHead
  {
    uint32_t ulTotalItemNum; // records in the file
    uint32_t ulReadItemNum;  // the record to read next
  };

  bool OpenWhenClosed();
  void DropFile();

  CLock m_lock;
  FILE* m_stream;
  char m_path[128];
  FileHead m_FileHead;
  [[maybe_unused]] int32_t m_limit;
};
