#include "annexb_splitter.h"

#include <algorithm>

namespace
{

constexpr size_t kStartCode = 3; // 00 00 01

// NAL unit types of ITU-T H.264, table 7-1.
enum NalType
{
  kNalSlice = 1,
  kNalPartitionA = 2,
  kNalPartitionC = 4,
  kNalIdrSlice = 5,
  kNalSei = 6,
  kNalSubsetSps = 15,
  kNalLastReservedBefore = 18
};

int nal_type(uint8_t header)
{
  return header & 0x1F;
}

bool is_slice(int type)
{
  return type >= kNalSlice && type <= kNalIdrSlice;
}

// Slice headers begin with first_mb_in_slice; data partitions B and C do not carry it.
bool has_first_mb(int type)
{
  return type == kNalSlice || type == kNalPartitionA || type == kNalIdrSlice;
}

// Types that begin a new access unit when they follow a slice. 14 is not among them: it stands before every slice.
bool leads_unit(int type)
{
  return (type >= kNalSei && type <= kNalDelimiter) ||
         (type >= kNalSubsetSps && type <= kNalLastReservedBefore);
}

// Position of the first start code at or after from, or size when there is none.
size_t start_code_at(const uint8_t* data, size_t size, size_t from)
{
  size_t i = from;
  while (i + kStartCode <= size)
  {
    if (data[i + 2] > 1)
      i += 3;
    else if (data[i + 2] == 1 && data[i] == 0 && data[i + 1] == 0)
      return i;
    else
      i += 1;
  }
  return size;
}

} // namespace

AnnexBSplitter::AnnexBSplitter(size_t limit) : limit_(limit) {}

void AnnexBSplitter::push(const uint8_t* data, size_t size)
{
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
  scan_ -= start_;
  start_ = 0;
  buffer_.insert(buffer_.end(), data, data + size);
}

bool AnnexBSplitter::next(AccessUnit& unit)
{
  while (find_start_code())
  {
    bool taken = false;
    if (!inspect_nal(unit, taken))
      return false;
    if (taken)
      return true;
  }
  return false;
}

bool AnnexBSplitter::finish(AccessUnit& unit)
{
  size_t end = start_code_at(buffer_.data(), buffer_.size(), scan_);
  const bool taken = inUnit_ && hasSlice_ && take(end, unit);
  start_ = scan_ = buffer_.size();
  inUnit_ = hasSlice_ = keyFrame_ = oversized_ = false;
  return taken;
}

// Moves scan_ to the next start code, or as far as is certain that there is none.
bool AnnexBSplitter::find_start_code()
{
  const size_t found = start_code_at(buffer_.data(), buffer_.size(), scan_);
  if (found < buffer_.size())
  {
    scan_ = found;
    return true;
  }
  if (buffer_.size() >= kStartCode)
    scan_ = std::max(scan_, buffer_.size() - (kStartCode - 1));
  discard_scanned();
  return false;
}

// Looks at the NAL unit at scan_: it goes on with the unit being collected or ends it. False when its first bytes
// have not arrived yet.
bool AnnexBSplitter::inspect_nal(AccessUnit& unit, bool& taken)
{
  const size_t header = scan_ + kStartCode;
  if (header >= buffer_.size())
    return false;
  const int type = nal_type(buffer_[header]);
  if (has_first_mb(type) && header + 1 >= buffer_.size())
    return false;
  // Number 0 is the single bit 1 in the code that slice headers use.
  const bool firstSlice = has_first_mb(type) && (buffer_[header + 1] & 0x80) != 0;

  // A zero byte before the start code belongs to it.
  const bool longCode = scan_ > start_ && buffer_[scan_ - 1] == 0;
  const size_t begin = longCode ? scan_ - 1 : scan_;
  if (!inUnit_)
  {
    start_ = begin;
    inUnit_ = true;
  }
  else if (hasSlice_ && (leads_unit(type) || firstSlice))
    taken = take(begin, unit);

  hasSlice_ = hasSlice_ || is_slice(type);
  keyFrame_ = keyFrame_ || (type == kNalIdrSlice && firstSlice);
  scan_ = header;
  return true;
}

// Ends the unit being collected before end. False when it is not handed out.
bool AnnexBSplitter::take(size_t end, AccessUnit& unit)
{
  const size_t begin = start_;
  const bool key = keyFrame_;
  const bool tooLarge = oversized_ || end - begin > limit_;
  start_ = end;
  hasSlice_ = keyFrame_ = oversized_ = false;

  awaitKey_ = tooLarge || (awaitKey_ && !key);
  if (awaitKey_)
  {
    ++dropped_;
    return false;
  }
  unit = {buffer_.data() + begin, end - begin, key};
  return true;
}

// Throws away what can no longer be part of a unit; the byte before scan_ may belong to a start code.
void AnnexBSplitter::discard_scanned()
{
  if (scan_ == 0)
    return;
  if (!inUnit_)
    start_ = scan_ - 1;
  else if (oversized_ || scan_ - 1 - start_ > limit_)
  {
    oversized_ = true;
    start_ = scan_ - 1;
  }
}

bool next_nal(const uint8_t* data, size_t size, size_t& at, NalUnit& nal)
{
  const size_t code = start_code_at(data, size, at);
  const size_t header = code + kStartCode;
  if (header >= size)
    return false;
  const size_t next = start_code_at(data, size, header);
  nal.begin = code > at && data[code - 1] == 0 ? code - 1 : code;
  nal.header = header;
  nal.end = next < size && next > header && data[next - 1] == 0 ? next - 1 : next;
  nal.type = nal_type(data[header]);
  at = nal.end;
  return true;
}

bool find_nal(const uint8_t* data, size_t size, int type, NalUnit& nal)
{
  size_t at = 0;
  while (next_nal(data, size, at, nal))
    if (nal.type == type)
      return true;
  return false;
}
