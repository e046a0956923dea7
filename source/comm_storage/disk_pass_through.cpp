#include "comm_storage/disk_pass_through.h"
#include "comm_storage/disk_sense.h"

#include <devcomm/disk_command.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <scsi/sg.h>
#include <sys/ioctl.h>

int prefer_ata12 = 0;
int verbose = 0;

namespace
{

constexpr unsigned int longBlock = 16;
constexpr unsigned int shortBlock = 12;
constexpr unsigned char longOpcode = 0x85;
constexpr unsigned char shortOpcode = 0xA1;

enum Protocol : unsigned char
{
  ProtocolNoData = 3,
  ProtocolPioIn = 4,
  ProtocolPioOut = 5,
  ProtocolDma = 6
};

void dump(const char* label, const void* bytes, size_t size)
{
  const auto* byte = static_cast<const unsigned char*>(bytes);
  fprintf(stderr, "%s: ", label);
  for (size_t i = 0; i < size; ++i)
  {
    fprintf(stderr, " %02x", byte[i]);
  }
  fputc('\n', stderr);
}

int fail(int error)
{
  errno = error;
  return -1;
}

Protocol protocol_of(bool hasData, bool write, bool dma)
{
  if (!hasData)
  {
    return ProtocolNoData;
  }
  if (dma)
  {
    return ProtocolDma;
  }
  return write ? ProtocolPioOut : ProtocolPioIn;
}

// Without data the disk's registers are asked for; with data they come back only on an error.
unsigned char flags_of(bool hasData, bool write)
{
  constexpr unsigned char registersBack = 0x20;
  constexpr unsigned char fromDisk = 0x08;
  constexpr unsigned char countIsInSectors = 0x06;
  if (!hasData)
  {
    return registersBack;
  }
  return write ? countIsInSectors : fromDisk | countIsInSectors;
}

// @return the length of the block
unsigned int make_block(const ata_tf& tf, unsigned char protocol, unsigned char flags, unsigned char* block)
{
  const auto doubled = static_cast<unsigned char>(protocol << 1);
  // Behind the short block's opcode, the command 0xA1 would be taken for the opcode of another command set.
  if (tf.is_lba48 == 0 && prefer_ata12 != 0 && tf.command != shortOpcode)
  {
    const unsigned char bytes[shortBlock] = {shortOpcode, doubled, flags,  tf.feat,    tf.nsect, tf.lbal,
                                             tf.lbam,     tf.lbah, tf.dev, tf.command, 0,        0};
    memcpy(block, bytes, shortBlock);
    return shortBlock;
  }
  const auto extend = static_cast<unsigned char>(tf.is_lba48 != 0 ? 1 : 0);
  const unsigned char bytes[longBlock] = {longOpcode, static_cast<unsigned char>(doubled | extend),
                                          flags,      tf.hob_feat,
                                          tf.feat,    tf.hob_nsect,
                                          tf.nsect,   tf.hob_lbal,
                                          tf.lbal,    tf.hob_lbam,
                                          tf.lbam,    tf.hob_lbah,
                                          tf.lbah,    tf.dev,
                                          tf.command, 0};
  memcpy(block, bytes, longBlock);
  return longBlock;
}

int transfer_direction(bool hasData, bool write)
{
  if (!hasData)
  {
    return SG_DXFER_NONE;
  }
  return write ? SG_DXFER_TO_DEV : SG_DXFER_FROM_DEV;
}

unsigned int timeout_ms(unsigned int seconds)
{
  constexpr unsigned int standard = 15000;
  if (seconds == 0)
  {
    return standard;
  }
  return seconds > UINT_MAX / 1000 ? UINT_MAX : seconds * 1000;
}

// Says what is wrong when a status is not one of those expected.
bool is_good(const char* what, unsigned int status)
{
  if (status != 0 && verbose != 0)
  {
    fprintf(stderr, "SG_IO: bad %s: 0x%x\n", what, status);
  }
  return status == 0;
}

// Whether the SCSI layer and the host adapter carried the command to its end, with sense data or without.
bool is_carried_out(const sg_io_hdr_t& request)
{
  constexpr unsigned int checkCondition = 0x02;
  constexpr unsigned int driverSense = 0x08;
  const bool statusGood = (request.status & ~checkCondition) == 0;
  const bool driverGood = (request.driver_status & ~driverSense) == 0;
  return is_good("status", statusGood ? 0 : request.status) && is_good("host status", request.host_status) &&
         is_good("driver status", driverGood ? 0 : request.driver_status);
}

void show_sense(Sense sense, const unsigned char* bytes, const ata_tf& tf, unsigned int blockLength)
{
  if (sense != Sense::Registers && sense != Sense::Doubtful)
  {
    dump("SG_IO: bad/missing sense data, sb[]", bytes, senseBytes);
    return;
  }
  if (sense == Sense::Doubtful)
  {
    fputs("SG_IO: questionable sense data, results may be incorrect\n", stderr);
  }
  fprintf(stderr, "      ATA_%u stat=%02x err=%02x nsect=%02x lbal=%02x lbam=%02x lbah=%02x dev=%02x\n",
          blockLength, tf.status, tf.error, tf.nsect, tf.lbal, tf.lbam, tf.lbah, tf.dev);
}

// The disk's own verdict, from registers that came back.
bool is_rejected(const ata_tf& tf)
{
  constexpr unsigned int errorOrDataRequest = 0x09;
  if ((tf.status & errorOrDataRequest) == 0)
  {
    return false;
  }
  if (verbose != 0)
  {
    fprintf(stderr, "I/O error, ata_op=0x%02x ata_status=0x%02x ata_error=0x%02x\n", tf.command, tf.status,
            tf.error);
  }
  return true;
}

} // namespace

int sg16(int fd, int write, int dma, ata_tf* tf, void* data, unsigned int bytes, unsigned int timeout_secs)
{
  if (tf == nullptr)
  {
    return fail(EINVAL);
  }
  const bool hasData = data != nullptr && bytes != 0;
  const bool isWrite = write != 0;
  unsigned char block[longBlock];
  unsigned char sense[senseBytes] = {};
  if (hasData && !isWrite)
  {
    memset(data, 0, bytes);
  }
  const unsigned int blockLength =
      make_block(*tf, protocol_of(hasData, isWrite, dma != 0), flags_of(hasData, isWrite), block);

  sg_io_hdr_t request = {};
  request.interface_id = 'S';
  request.dxfer_direction = transfer_direction(hasData, isWrite);
  request.dxferp = hasData ? data : nullptr;
  request.dxfer_len = hasData ? bytes : 0;
  request.cmdp = block;
  request.cmd_len = static_cast<unsigned char>(blockLength);
  request.sbp = sense;
  request.mx_sb_len = senseBytes;
  request.timeout = timeout_ms(timeout_secs);
  if (verbose != 0)
  {
    dump("outgoing cdb", block, blockLength);
    if (hasData && isWrite)
    {
      dump("outgoing_data", data, bytes);
    }
  }

  if (ioctl(fd, SG_IO, &request) == -1)
  {
    const int error = errno;
    perror("ioctl(fd,SG_IO)");
    return fail(error);
  }
  if (verbose != 0)
  {
    fprintf(stderr, "SG_IO: ATA_%u status=0x%x, host_status=0x%x, driver_status=0x%x\n", blockLength,
            request.status, request.host_status, request.driver_status);
  }
  if (!is_carried_out(request))
  {
    return fail(EBADE);
  }

  const Sense told = read_sense(sense, tf);
  if (verbose != 0)
  {
    show_sense(told, sense, *tf, blockLength);
  }
  if (told == Sense::Refused)
  {
    return fail(EBADE);
  }
  const bool hasRegisters = told == Sense::Registers || told == Sense::Doubtful;
  if (told == Sense::Failed || (hasRegisters && is_rejected(*tf)))
  {
    return fail(EIO);
  }
  if (verbose != 0 && hasData && !isWrite)
  {
    dump("incoming_data", data, bytes);
  }
  return 0;
}
