#pragma once

/// @file
/// Keeps a lap of frames in one area and hands them out without a copy, with seeking by key frames.

#include <devcomm/export.h>
#include <devcomm/frame_info.h>

#include <pthread.h>

/// The three readers of a RoundBufMng.
enum UserType_e : int
{
  UserType_Live = 0,
  UserType_Record = 1,
  UserType_Playback = 2
};

/// Where StartGetFrame puts a reader. Any other number: at or before the reader's own position, at a key frame.
enum StartGetFrameMode_e
{
  StartGetFrame_Latest = 0, ///< at the latest key frame
  StartGetFrame_Resume = 1, ///< where the reader stopped, unless the writer is more than 800 frames ahead
  StartGetFrame_GoBack = 2  ///< `count` key frames back
};

/// Writes a frame's bytes (info->length of them) to their place in the buffer.
typedef int (*FrameFiller_t)(void* context, unsigned char* destination);

/// One writer, and up to three readers who get pointers into the area. A lap ends when the area has no room for
/// the next frame, or after 6000 frames. The writer never waits for readers: one that has been lapped is moved to
/// the newest frame. Key frames are those of frameType 1; the last 50 are remembered.
///
/// Threads: none may share it until its owner sets m_bUseLock. After that every operation takes the mutex, save
/// RegisterUser, UnRegisterUser, GetLeftFrameCount, and the "nothing to read" of AdjustReadUserInfo and
/// GetFrameFromBuffer, which never wait. Nothing may be called from a filler then but those.
///
/// A reader other than 0, 1 or 2 is refused with -1 everywhere. The object itself takes some 190 KiB: make it once
/// per stream, and not on a stack. Nothing is allocated after construction.
class DEVCOMM_API RoundBufMng
{
public:
  /// @param size  bytes of the area, below 2^32; without memory for it the buffer stores nothing
  explicit RoundBufMng(unsigned long size);
  virtual ~RoundBufMng();
  RoundBufMng(const RoundBufMng&) = delete;
  RoundBufMng& operator=(const RoundBufMng&) = delete;

  /// Admits a reader, not positioned yet.
  ///
  /// @return 0
  int RegisterUser(UserType_e user);

  /// @return 0
  int UnRegisterUser(UserType_e user);

  /// Puts a reader at the writer: nothing to read, and the next frame stored is its next.
  ///
  /// @return 0
  int ResetUserInfo(UserType_e user);

  /// Stores a frame.
  ///
  /// @param info       describes it; frameType is kept in 8 bits, but only a frameType of exactly 1 is remembered
  ///                   as a key frame
  /// @param useFiller  0: source is the frame's bytes. Else: source is a FrameFiller_t
  /// @param context    for the filler
  /// @return 0, also for a frame longer than the area, which is not stored (and its filler not called)
  int PutFrameToBuffer(FrameInfo_t* info, int useFiller, void* source, void* context);

  /// Tells the frames between a reader and the writer, as if the reader were at most a lap behind.
  ///
  /// @return 0 and more
  int GetLeftFrameCount(UserType_e user);

  /// Puts a reader `count` key frames back. Going back over the start of the ring of 50 lands one key frame
  /// later than that: readers have always been served so. Without a key frame there the reader goes to the
  /// ring's next position to be filled.
  ///
  /// @param count  key frames; what the ring does not hold is cut to its ends
  /// @return 0
  int CalculateReadIndexByTime(UserType_e user, int count);

  /// Positions a reader before reading.
  ///
  /// @param mode   StartGetFrameMode_e
  /// @param count  key frames to go back, taken as 15 when above it; only for StartGetFrame_GoBack
  /// @return 0; -1 for a reader that is not registered
  ///
  /// Going to the latest key frame writes its place to standard error.
  int StartGetFrame(UserType_e user, int mode, int count);

  /// Checks a reader's position before a read.
  ///
  /// @return 0: a frame is ready. -1: the reader had been lapped and is now on the newest frame, or it is not
  ///         registered. -2: nothing to read (a reader exactly one lap behind gets this too)
  int AdjustReadUserInfo(UserType_e user);

  /// Delivers a reader's next frame in place.
  ///
  /// @param frame  the frame's bytes in the area; use them before the writer comes round to them
  /// @param info   the descriptor; frameType 0..255
  /// @return 0; else AdjustReadUserInfo's -1 or -2, or -1 for null pointers, and nothing is delivered
  int GetFrameFromBuffer(UserType_e user, unsigned char** frame, FrameInfo_t* info);

private:
  enum
  {
    slotCount = 6000,
    keyCount = 50,
    userCount = 3,
    notPositioned = 32767
  };

  struct Slot
  {
    uint32_t frameClass;
    uint32_t offset; // in data
    uint32_t length;
    uint64_t timeStamp;
    uint8_t frameType;
  };

  struct Reader
  {
    uint16_t readIndex; // slot to read next, or notPositioned
    uint16_t registered;
    uint32_t lapCount;       // the lap readIndex belongs to
    uint64_t lastIFrameTime; // of the last key frame delivered
  };

  static bool Known(UserType_e user);
  pthread_mutex_t* Lock();
  void EndLap();
  void Place(Reader& reader, unsigned int slot, uint32_t lap);
  void PlaceAtWriter(Reader& reader);
  void PlaceOnNewest(Reader& reader);
  void PlaceOnKey(Reader& reader, int count);
  void PlaceOnLatestKey(Reader& reader);
  void BackUpToKey(Reader& reader);
  bool MayResume(const Reader& reader) const;
  bool NothingNew(const Reader& reader) const;
  void NextLap(Reader& reader);
  int Adjust(Reader& reader);

  unsigned char* data;
  uint32_t capacity;
  uint32_t writeOffset; // where the next frame's bytes go
  Slot frameIndex[slotCount];
  uint16_t writeIndex;            // slot of the next frame
  uint16_t highIndex;             // slots in use, those of the lap being overwritten included
  uint16_t iFrameIndex[keyCount]; // slots of recent key frames, a ring
  uint16_t iFramePos;             // ring position to fill next
  uint16_t iFrameCount;           // ring positions ever filled
  uint32_t lapCount;
  Reader users[userCount];

public:
  /// Off at first. Its owner turns it on before a second thread uses the object.
  bool m_bUseLock;

private:
  pthread_mutex_t mutex;
};
