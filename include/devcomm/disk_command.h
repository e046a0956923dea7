#pragma once

/// @file
/// Single ATA commands to a hard disk: an ATA PASS-THROUGH block through the kernel's SCSI generic interface
/// (SG_IO), or the legacy IDE ioctls where that is refused. Two services put a disk to sleep and flush its write
/// cache; the rest is for other commands (ATA8-ACS for the commands, SAT for the pass-through).
///
/// Needs CAP_SYS_RAWIO. A command blocks until the disk has answered or its time is up; any thread.
/// Diagnostics go to standard error, and except for failing ioctls and services, only when verbose is set.

#include <devcomm/export.h>

/// Non-zero: commands that fit go out in the 12-byte block instead of the 16-byte one. 0 at start.
extern DEVCOMM_API int prefer_ata12;

/// Non-zero: command blocks, data and the details of every failure are shown on standard error. 0 at start.
extern DEVCOMM_API int verbose;

/// The registers of an ATA command and of its answer.
struct ata_tf
{
  unsigned char dev; ///< device register: 0x40 is LBA addressing, bits 0 to 3 are address bits 24 to 27
  unsigned char command;
  unsigned char error;    ///< returned
  unsigned char status;   ///< returned; bit 0 is error, bit 3 data request
  unsigned char is_lba48; ///< non-zero: 48-bit addressing, the high-order bytes below count
  unsigned char feat;
  unsigned char nsect; ///< sectors of 512 bytes
  unsigned char lbal;  ///< address bits 0 to 7
  unsigned char lbam;  ///< address bits 8 to 15
  unsigned char lbah;  ///< address bits 16 to 23
  unsigned char hob_feat;
  unsigned char hob_nsect;
  unsigned char hob_lbal; ///< address bits 24 to 31
  unsigned char hob_lbam; ///< address bits 32 to 39
  unsigned char hob_lbah; ///< address bits 40 to 47
};

/// The kernel's HDIO_DRIVE_TASKFILE request (ide_task_request_t of <linux/hdreg.h>). The bytes to send follow it
/// immediately, those to receive follow them: allocate sizeof(hdio_taskfile) + out_size + in_size.
struct hdio_taskfile
{
  /// Data, feature (on return: error), sector count, address bits 0-7, 8-15, 16-23, device, command (on return:
  /// status).
  unsigned char io_ports[8];
  unsigned char hob_ports[8]; ///< the high-order bytes in the same order; 0, 6 and 7 are not used

  /// Registers that are sent, a bit each: 0 data, 1 feature, 2 address 0-7, 3 sector count, 4 address 8-15,
  /// 5 address 16-23, 6 device, 7 command; bits 8 to 15 for their high-order bytes, which
  /// make it 48-bit addressing. 0 sends all, and high-order bytes when one is not 0.
  unsigned int out_flags;
  unsigned int in_flags; ///< registers that came back, in the same way
  int data_phase;        ///< TASKFILE_NO_DATA, TASKFILE_IN, TASKFILE_OUT, TASKFILE_IN_DMA, ...
  int req_cmd; ///< IDE_DRIVE_TASK_NO_DATA (0), IDE_DRIVE_TASK_IN (2), IDE_DRIVE_TASK_OUT (3) or ..._RAW_WRITE (4)
  unsigned long out_size; ///< bytes to send
  unsigned long in_size;  ///< bytes to receive
};

/// Fills a taskfile. Addressing has 28 bits where the command and its arguments allow it, else 48.
///
/// @param lba    address in sectors
/// @param nsect  sectors; 0 means 256 to a 28-bit command
DEVCOMM_API void tf_init(ata_tf* tf, unsigned char cmd, unsigned long long lba, unsigned int nsect);

/// @return the address in a taskfile, in sectors; 48 or 28 bits as is_lba48 says
DEVCOMM_API unsigned long long tf_to_lba(ata_tf* tf);

/// Sends one command by pass-through.
///
/// @param fd            block or SCSI generic device
/// @param write         non-zero: the data goes to the disk
/// @param dma           non-zero: the command moves its data by DMA
/// @param tf            on return, where the disk told its registers: error, nsect, lbal, lbam, lbah, dev and
///                      status, and the high-order bytes with is_lba48. As it was otherwise, as usual after a
///                      read or write that went well
/// @param data          null without data; when reading it is zeroed first
/// @param bytes         of data: 512 for each sector in the sector count
/// @param timeout_secs  0: 15 seconds
/// @return 0; -1 with errno set: by the ioctl; EBADE when the command did not get through to the disk; EIO when
///         the disk answered with error or data request, or failed it without telling its registers; EINVAL for a
///         null tf
DEVCOMM_API int sg16(int fd, int write, int dma, ata_tf* tf, void* data, unsigned int bytes,
                     unsigned int timeout_secs);

/// Sends one command without data or with data to read, in the layout of the kernel's HDIO_DRIVE_CMD.
///
/// @param args          byte 0 command (on return: status), byte 1 sector number (error), byte 2 feature (sector
///                      count), byte 3 sectors of 512 bytes to read, which arrive from byte 4 on: 4 + 512 x
///                      byte 3 bytes in all. Null is handed to the kernel as it is
/// @param timeout_secs  0: 15 seconds
/// @return 0; -1 with errno set as by sg16. Where the pass-through is refused (EBADE, EINVAL, ENODEV), result of
///         ioctl(HDIO_DRIVE_CMD)
DEVCOMM_API int do_drive_cmd(int fd, unsigned char* args, unsigned int timeout_secs);

/// Fills a taskfile request for a command, flags and registers, and leaves the bytes behind it alone.
///
/// @param r      room for its data behind it
/// @param tf     from tf_init, with what the command needs beyond that
/// @param write  non-zero: the data goes to the disk
/// @param bytes  of data; 0 without data
DEVCOMM_API void init_hdio_taskfile(hdio_taskfile* r, const ata_tf* tf, int write, unsigned int bytes);

/// Sends one command in the layout of the kernel's HDIO_DRIVE_TASKFILE. Of requests with both directions only
/// the one that req_cmd names is served.
///
/// @param r             from init_hdio_taskfile or filled by hand; receives the registers and in_flags
/// @param timeout_secs  0: 15 seconds
/// @return 0; -1 with errno set as by sg16. Where the pass-through is refused (EBADE, EINVAL, ENODEV), result of
///         ioctl(HDIO_DRIVE_TASKFILE)
DEVCOMM_API int do_taskfile_cmd(int fd, hdio_taskfile* r, unsigned int timeout_secs);

/// Puts a disk to sleep; only a reset wakes it, which the kernel does at the next access.
///
/// @param device  path; not opened when null
/// @return result of closing the device, or -1 when it does not open. It says nothing about the disk: where both
///         SLEEP commands fail, a line on standard error does
DEVCOMM_API int ShutdownHD(const char* device);

/// Flushes a disk's write cache, within three seconds.
///
/// @param fd      open device; below 1, device is opened for reading and writing and closed again
/// @param device  path; counts only when fd is below 1
/// @param mode    has no effect
/// @return 0 on success and with neither fd nor device; -1 when the device does not open; the errno of a failing
///         command, after a line on standard error
DEVCOMM_API int HDD_flush_wcache(int fd, const char* device, int mode);
