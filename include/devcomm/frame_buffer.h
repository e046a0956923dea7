#pragma once

/// @file
/// Keeps the newest frames of a media stream for any number of readers, each at its own pace.

#include <devcomm/export.h>
#include <devcomm/frame_info.h>

/// One writer appends frames to a fixed area of bytes; the oldest frames are dropped as room or index nodes run
/// out. A reader that falls so far behind that its next frame has been dropped goes on at the newest frame, after
/// a log line and a call of overrunFunc.
///
/// Threads: any thread may call any member; one mutex serialises writer and readers. Both callbacks run on the
/// calling thread with that mutex held: they must not call the same buffer.
///
/// Reads copy into the caller's memory and cannot see how much of it there is: offer room for the `max` largest
/// frames (for one when max is below 1). Frames should stay well under half of the area. Larger ones are never
/// cut and never overlap a frame that can still be read: they push out what is in their way, and one that is
/// longer than the whole area is not stored. An empty frame is stored and read with length 0, but behind two or
/// more frames it pushes out all of them.
///
/// An object whose memory could not be had, or of a size below 1, stores nothing and knows no reader.
class DEVCOMM_API CCommBuffer
{
public:
  /// @param size         bytes of the area; size / 1024, rounded up to a multiple of 8, less 1, is the most
  ///                     frames held at once whatever their size; below 1024 no frame can be held
  /// @param logFunc      gets level 2, a printf format and a 64-bit time stamp; may be null
  /// @param overrunFunc  gets 0 from Read, 1 from MultiRead and MultiReadEx, 2 from MapRead when a reader has
  ///                     lost frames; its result is ignored; may be null
  CCommBuffer(int size, int (*logFunc)(unsigned int, const char*, ...), int (*overrunFunc)(int));

  /// Releases the frames and all readers. No other thread may be inside a member, or call one any more.
  ~CCommBuffer();

  CCommBuffer(const CCommBuffer&) = delete;
  CCommBuffer& operator=(const CCommBuffer&) = delete;

  /// Adds a reader; it starts at the oldest frame stored when it first reads.
  ///
  /// @param classMask  MapRead delivers frames whose frameClass is the number of a set bit, 0..31
  /// @param typeMask   likewise for frameType; of both masks the low 32 bits count
  /// @return the reader's id: 0, 1, 2, ..., never used twice; -1 when memory ran out
  int Register(unsigned long classMask, unsigned long typeMask);

  /// Removes a reader; an unknown id is let be.
  ///
  /// @return 0
  int Unregister(int id);

  /// Copies the reader's next frame.
  ///
  /// @param buf   room for the largest frame
  /// @param info  the frame's descriptor
  /// @return 1, or 0 when there is no new frame or no such reader (buf and info untouched)
  int Read(int id, unsigned char* buf, FrameInfo_t* info);

  /// Copies the reader's next frames, payloads back to back.
  ///
  /// @param infos  one descriptor per frame
  /// @param max    frames at most; one frame is delivered even when this is below 1
  /// @return frames copied, 0 for an unknown reader
  int MultiRead(int id, unsigned char* buf, FrameInfo_t* infos, int max);

  /// Copies those of the reader's next frames whose class is wanted; the others are consumed all the same.
  ///
  /// Each frame is written to buf as a 24-byte little-endian header followed by its payload, back to back:
  /// 0 timeStamp (8 bytes), 8 the mark 0xAA55AA55, 12 frameType, 16 frameClass, 20 length. Room in buf: 24 bytes
  /// more per frame.
  ///
  /// @param max        as for MultiRead
  /// @param classMask  bit n delivers frames of frameClass n, 0..31; other classes are not delivered
  /// @param outLen     bytes written to buf, headers included; may be null
  /// @return frames copied, 0 for an unknown reader
  int MultiReadEx(int id, unsigned char* buf, FrameInfo_t* infos, int max, unsigned int classMask,
                  int* outLen);

  /// Copies those of the reader's next frames that both masks given to Register select, payloads back to back;
  /// the others are consumed all the same. The low 8 bits of frameClass and frameType select the bit.
  ///
  /// @param max  as for MultiRead
  /// @return frames copied, 0 for an unknown reader
  int MapRead(int id, unsigned char* buf, FrameInfo_t* infos, int max);

  /// Moves a reader back from the newest frame; the next read delivers the frame after the one it is put on.
  ///
  /// @param byTime  0: amount is a number of frames to leave unread, and all but the oldest are left when fewer
  ///                than amount + 1 are stored. Else: seconds; the reader is put on the newest frame that is at
  ///                least so much older than the newest, or on the oldest
  /// @param amount  0 puts the reader on the newest frame, nothing unread
  /// @return 0; -1 for an unknown reader or an empty buffer
  int Seek(int id, int byTime, unsigned int amount);

  /// Tells how far a reader is behind, and the time span stored.
  ///
  /// @param oldestSec  seconds since the epoch of the oldest frame, 0 when empty; may be null
  /// @param newestSec  the same of the newest frame; may be null
  /// @return unread frames + 1 (callers count on the one), 0 for a reader that has read nothing yet or has lost
  ///         frames; -1 for an unknown reader
  int GetLeft(int id, unsigned int* oldestSec, unsigned int* newestSec);

  /// Appends a frame, dropping the oldest ones as needed.
  ///
  /// @param data  info->length bytes, copied before the call returns; may be null when that is 0
  /// @param info  a timeStamp of 0 is replaced in the caller's record by the time of day
  /// @return 0, also when the frame could not be stored
  int PutData(unsigned char* data, FrameInfo_t* info);

  /// PutData in the shape of a producer's callback.
  ///
  /// @param buffer  the CCommBuffer
  /// @return 0
  static int Write(FrameInfo_t* info, char* data, void* buffer);

  /// @return readers registered
  int GetUsrCount();

private:
  struct Node;
  struct CommBufUser;
  struct Reading;
  struct State;

  Node* AddNode(FrameInfo_t* info, unsigned long offset, Node* prev);
  void FreeNode(unsigned long from, unsigned long to);
  int RefreshIndex(FrameInfo_t* info, unsigned long* offset);
  void DropOldest();
  bool Usable() const;
  CommBufUser* FindUser(int id) const;
  Node* NextFrame(CommBufUser& user, const Reading& reading);
  int ReadMany(int id, unsigned char* buf, FrameInfo_t* infos, int max, const Reading& reading, uint32_t mask,
               int* outLen);
  unsigned char* CopyFrame(const Node& node, unsigned char* buf, FrameInfo_t& info) const;
  static unsigned char* PutHeader(const Node& node, unsigned char* to);

  State* state;
};
