#include "comm_storage/disk_sense.h"

namespace
{

constexpr unsigned int headBytes = 8;
constexpr unsigned char descriptorType = 0x09;
constexpr unsigned int descriptorBytes = 14; // type and length among them

// The ATA Status Return descriptor, which need not be the first one. @return null when it is not there, whole: in
// a shorter one the next descriptor's bytes would be taken for registers
const unsigned char* find_registers(const unsigned char (&sense)[senseBytes])
{
  const bool isDescriptorFormat = (sense[0] & 0x7F) == 0x72;
  const unsigned int length = sense[7];
  if (!isDescriptorFormat || length < descriptorBytes)
  {
    return nullptr;
  }
  const unsigned int end = headBytes + length < senseBytes ? headBytes + length : senseBytes;
  for (unsigned int at = headBytes; at + descriptorBytes <= end; at += 2U + sense[at + 1])
  {
    if (sense[at] == descriptorType)
    {
      return sense[at + 1] >= descriptorBytes - 2 ? sense + at : nullptr;
    }
  }
  return nullptr;
}

// What the sense key says, in either format. Kernels describe an error of the disk in the fixed format when the
// device is set to that, which has no room for all registers.
Sense judge_key(const unsigned char (&sense)[senseBytes])
{
  enum Key
  {
    NoSense = 0,
    RecoveredError = 1,
    MediumError = 3,
    HardwareError = 4,
    AbortedCommand = 11,
    Completed = 15
  };
  const unsigned int format = sense[0] & 0x7F;
  const bool isDeferred =
      format == 0x71 || format == 0x73; // about an earlier command, and this one was not begun
  unsigned int key = NoSense;
  if (format == 0x70 || format == 0x71)
  {
    key = sense[2] & 0x0F;
  }
  else if (format == 0x72 || format == 0x73)
  {
    key = sense[1] & 0x0F;
  }
  switch (key)
  {
  case NoSense:
  case RecoveredError:
  case Completed:
    return Sense::Missing;
  case MediumError:
  case HardwareError:
  case AbortedCommand:
    return isDeferred ? Sense::Refused : Sense::Failed;
  default:
    return Sense::Refused;
  }
}

// Registers of a disk that is busy or has a fault, that are all zero as some bridges make them up, or that came
// without the high-order bytes or in a longer descriptor.
bool is_doubtful(const unsigned char* descriptor, const ata_tf& tf)
{
  constexpr unsigned int busyOrFault = 0xA0;
  unsigned int any = 0;
  for (unsigned int i = 3; i < descriptorBytes; ++i)
  {
    any |= descriptor[i];
  }
  const bool extended = (descriptor[2] & 1) != 0;
  return (tf.status & busyOrFault) != 0 || any == 0 || (tf.is_lba48 != 0 && !extended) ||
         descriptor[1] != descriptorBytes - 2;
}

} // namespace

Sense read_sense(const unsigned char (&sense)[senseBytes], ata_tf* tf)
{
  const unsigned char* descriptor = find_registers(sense);
  if (descriptor == nullptr)
  {
    return judge_key(sense);
  }
  tf->error = descriptor[3];
  tf->nsect = descriptor[5];
  tf->lbal = descriptor[7];
  tf->lbam = descriptor[9];
  tf->lbah = descriptor[11];
  tf->dev = descriptor[12];
  tf->status = descriptor[13];
  if (tf->is_lba48 != 0)
  {
    tf->hob_nsect = descriptor[4];
    tf->hob_lbal = descriptor[6];
    tf->hob_lbam = descriptor[8];
    tf->hob_lbah = descriptor[10];
  }
  return is_doubtful(descriptor, *tf) ? Sense::Doubtful : Sense::Registers;
}
