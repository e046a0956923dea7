#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// One coded picture with everything that belongs to it, start codes included.
struct AccessUnit
{
  const uint8_t* data; ///< inside the splitter; valid until its next push()
  size_t size;         ///< bytes
  bool keyFrame;       ///< holds an IDR picture: decoding can begin here
};

/// Cuts an H.264 byte stream (ITU-T H.264 Annex B) into access units, from pieces of any size.
///
/// Push a piece, then take units with next() until there is none; the result does not depend on how the stream
/// was cut into pieces. A unit is complete when the first NAL unit of the following one has been seen (7.4.1.2.3):
/// a delimiter, parameter set or SEI after a slice, or a slice whose first macroblock is number 0.
///
/// Any bytes are safe. A unit above the limit is dropped, and the units after it up to the next key frame, since
/// they refer to it. Memory stays below the limit plus one piece. Not for use by several threads at once.
class AnnexBSplitter
{
public:
  /// @param limit  largest access unit that is handed out, in bytes
  explicit AnnexBSplitter(size_t limit);

  /// Appends stream bytes. Units handed out before become invalid.
  void push(const uint8_t* data, size_t size);

  /// Takes the next complete unit.
  /// @return false when more bytes are needed; unit is then unchanged
  bool next(AccessUnit& unit);

  /// Ends the stream: takes the last unit, which nothing follows, and makes ready for a stream from its start.
  /// Call it when next() has returned false. @return false when no picture was pending
  bool finish(AccessUnit& unit);

  /// Units dropped so far: above the limit, or following such a one.
  uint64_t dropped() const
  {
    return dropped_;
  }

private:
  bool find_start_code();
  bool inspect_nal(AccessUnit& unit, bool& taken);
  bool take(size_t end, AccessUnit& unit);
  void discard_scanned();

  std::vector<uint8_t> buffer_;
  size_t limit_;
  size_t start_ = 0;       // where the unit being collected begins
  size_t scan_ = 0;        // no unseen start code begins before this
  bool inUnit_ = false;    // a start code has been seen
  bool hasSlice_ = false;  // the unit holds a slice: what follows may begin the next unit
  bool keyFrame_ = false;  // the unit holds the first slice of an IDR picture
  bool oversized_ = false; // the unit's first bytes have been thrown away already
  bool awaitKey_ = false;  // a unit was dropped: nothing decodes before the next key frame
  uint64_t dropped_ = 0;
};

/// NAL unit types of ITU-T H.264, table 7-1, that the recorder looks for.
constexpr int kNalSps = 7;
constexpr int kNalPps = 8;
constexpr int kNalDelimiter = 9;

/// One NAL unit within an access unit, as offsets.
struct NalUnit
{
  size_t begin;  ///< its start code
  size_t header; ///< its header byte, the first after the start code
  size_t end;    ///< the next start code, or the end
  int type;
};

/// Walks through the NAL units of an access unit.
/// @param at  0 for the first call; the call moves it on
/// @return false when there are no more; nal is then unchanged
bool next_nal(const uint8_t* data, size_t size, size_t& at, NalUnit& nal);

/// Finds the first NAL unit of a type in an access unit. @return false when there is none; nal is then undefined
bool find_nal(const uint8_t* data, size_t size, int type, NalUnit& nal);
