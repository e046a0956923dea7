#include <devcomm/disk_command.h>

#include "comm_storage/disk_pass_through.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <linux/hdreg.h>
#include <sys/ioctl.h>

static_assert(sizeof(ata_tf) == 15, "no padding");
static_assert(sizeof(hdio_taskfile) == sizeof(ide_task_request_t), "the kernel's layout");
static_assert(offsetof(hdio_taskfile, out_flags) == offsetof(ide_task_request_t, out_flags),
              "the kernel's layout");
static_assert(offsetof(hdio_taskfile, in_flags) == offsetof(ide_task_request_t, in_flags),
              "the kernel's layout");
static_assert(offsetof(hdio_taskfile, data_phase) == offsetof(ide_task_request_t, data_phase),
              "the kernel's layout");
static_assert(offsetof(hdio_taskfile, out_size) == offsetof(ide_task_request_t, out_size),
              "the kernel's layout");

namespace
{

constexpr unsigned char lbaMode = 0x40;

// Places in io_ports and hob_ports.
enum Port
{
  PortFeature = 1, // on return: error
  PortCount,
  PortLbaLow,
  PortLbaMid,
  PortLbaHigh,
  PortDevice,
  PortCommand // on return: status
};

// The flag bits count as the ports do, but for the sector count and the lowest address byte, which change places.
unsigned int flag_of(Port port)
{
  switch (port)
  {
  case PortCount:
    return 1U << PortLbaLow;
  case PortLbaLow:
    return 1U << PortCount;
  default:
    return 1U << port;
  }
}

bool is_always_48_bit(unsigned char cmd)
{
  static const unsigned char commands[] = {0x06, 0x24, 0x25, 0x27, 0x34, 0x35, 0x37, 0x42, 0x45, 0xEA};
  return memchr(commands, cmd, sizeof commands) != nullptr;
}

bool is_always_28_bit(unsigned char cmd)
{
  static const unsigned char commands[] = {0x80, 0xB0, 0xF3, 0xF4};
  return memchr(commands, cmd, sizeof commands) != nullptr;
}

// A disk tells at most 0x0FFFFFFF sectors in 28 bits, so that the last address is one less.
bool fits_28_bits(unsigned long long lba, unsigned int nsect)
{
  constexpr unsigned long long sectors = 0x0FFFFFFF;
  return lba < sectors && (nsect == 0 || (nsect < 256 && lba + nsect - 1 < sectors));
}

unsigned char byte_of(unsigned long long value, unsigned int index)
{
  return static_cast<unsigned char>(value >> (8 * index));
}

unsigned int three_bytes(unsigned int low, unsigned int mid, unsigned int high)
{
  return low | (mid << 8) | (high << 16);
}

bool is_write(const hdio_taskfile& r)
{
  return r.req_cmd == IDE_DRIVE_TASK_OUT || r.req_cmd == IDE_DRIVE_TASK_RAW_WRITE;
}

bool is_dma_phase(int phase)
{
  return phase == TASKFILE_IN_DMA || phase == TASKFILE_OUT_DMA;
}

// Takes what the flags call valid; the rest stays as tf_init makes it.
void taskfile_from_request(const hdio_taskfile& r, ata_tf* tf)
{
  const bool all = (r.out_flags & 0xFFFF) == 0;
  const auto take = [&](Port port, unsigned char& low, unsigned char& high)
  {
    if (all || (r.out_flags & flag_of(port)) != 0)
    {
      low = r.io_ports[port];
    }
    const unsigned char value = r.hob_ports[port];
    if (all ? value != 0 : (r.out_flags & (flag_of(port) << 8)) != 0)
    {
      high = value;
      tf->is_lba48 = 1;
    }
  };
  tf_init(tf, r.io_ports[PortCommand], 0, 0);
  take(PortFeature, tf->feat, tf->hob_feat);
  take(PortCount, tf->nsect, tf->hob_nsect);
  take(PortLbaLow, tf->lbal, tf->hob_lbal);
  take(PortLbaMid, tf->lbam, tf->hob_lbam);
  take(PortLbaHigh, tf->lbah, tf->hob_lbah);
  if (all || (r.out_flags & flag_of(PortDevice)) != 0)
  {
    tf->dev = r.io_ports[PortDevice];
  }
}

void put_registers(hdio_taskfile* r, const ata_tf& tf, unsigned char first, unsigned char last)
{
  r->io_ports[PortFeature] = first;
  r->io_ports[PortCount] = tf.nsect;
  r->io_ports[PortLbaLow] = tf.lbal;
  r->io_ports[PortLbaMid] = tf.lbam;
  r->io_ports[PortLbaHigh] = tf.lbah;
  r->io_ports[PortDevice] = tf.dev;
  r->io_ports[PortCommand] = last;
  if (tf.is_lba48 != 0)
  {
    r->hob_ports[PortCount] = tf.hob_nsect;
    r->hob_ports[PortLbaLow] = tf.hob_lbal;
    r->hob_ports[PortLbaMid] = tf.hob_lbam;
    r->hob_ports[PortLbaHigh] = tf.hob_lbah;
  }
}

unsigned int returned_flags(const ata_tf& tf)
{
  return tf.is_lba48 != 0 ? IDE_TASKFILE_STD_IN_FLAGS | (IDE_HOB_STD_IN_FLAGS << 8)
                          : IDE_TASKFILE_STD_IN_FLAGS;
}

} // namespace

bool is_dma_command(unsigned char cmd)
{
  static const unsigned char commands[] = {0x06, 0x25, 0x35, 0x60, 0x61, 0xC8, 0xCA};
  return memchr(commands, cmd, sizeof commands) != nullptr;
}

void tf_init(ata_tf* tf, unsigned char cmd, unsigned long long lba, unsigned int nsect)
{
  if (tf == nullptr)
  {
    return;
  }
  *tf = {};
  tf->command = cmd;
  tf->dev = lbaMode;
  tf->nsect = byte_of(nsect, 0);
  tf->lbal = byte_of(lba, 0);
  tf->lbam = byte_of(lba, 1);
  tf->lbah = byte_of(lba, 2);
  if (!is_always_48_bit(cmd) && (is_always_28_bit(cmd) || fits_28_bits(lba, nsect)))
  {
    tf->dev = static_cast<unsigned char>(lbaMode | (byte_of(lba, 3) & 0x0F));
    return;
  }
  tf->is_lba48 = 1;
  tf->hob_nsect = byte_of(nsect, 1);
  tf->hob_lbal = byte_of(lba, 3);
  tf->hob_lbam = byte_of(lba, 4);
  tf->hob_lbah = byte_of(lba, 5);
}

unsigned long long tf_to_lba(ata_tf* tf)
{
  if (tf == nullptr)
  {
    return 0;
  }
  const unsigned long long low = three_bytes(tf->lbal, tf->lbam, tf->lbah);
  const unsigned long long high =
      tf->is_lba48 != 0 ? three_bytes(tf->hob_lbal, tf->hob_lbam, tf->hob_lbah) : tf->dev & 0x0FU;
  return (high << 24) | low;
}

void init_hdio_taskfile(hdio_taskfile* r, const ata_tf* tf, int write, unsigned int bytes)
{
  if (r == nullptr || tf == nullptr)
  {
    return;
  }
  *r = {};
  put_registers(r, *tf, tf->feat, tf->command);
  r->in_flags = returned_flags(*tf);
  r->out_flags = r->in_flags; // the kernel's two standard sets are the same
  if (tf->is_lba48 != 0 && tf->hob_feat != 0)
  {
    r->hob_ports[PortFeature] = tf->hob_feat;
    r->out_flags |= flag_of(PortFeature) << 8;
  }
  if (bytes == 0)
  {
    r->data_phase = TASKFILE_NO_DATA;
    r->req_cmd = IDE_DRIVE_TASK_NO_DATA;
    return;
  }
  const bool dma = is_dma_command(tf->command);
  if (write != 0)
  {
    r->data_phase = dma ? TASKFILE_OUT_DMA : TASKFILE_OUT;
    r->req_cmd = IDE_DRIVE_TASK_OUT;
    r->out_size = bytes;
  }
  else
  {
    r->data_phase = dma ? TASKFILE_IN_DMA : TASKFILE_IN;
    r->req_cmd = IDE_DRIVE_TASK_IN;
    r->in_size = bytes;
  }
}

int do_taskfile_cmd(int fd, hdio_taskfile* r, unsigned int timeout_secs)
{
  if (r == nullptr || r->out_size > INT_MAX || r->in_size > INT_MAX)
  {
    errno = EINVAL;
    return -1;
  }
  const bool write = is_write(*r);
  auto* data = reinterpret_cast<unsigned char*>(r + 1);
  unsigned long bytes = r->out_size;
  if (!write)
  {
    data += r->out_size;
    bytes = r->req_cmd == IDE_DRIVE_TASK_NO_DATA ? 0 : r->in_size;
  }
  ata_tf tf;
  taskfile_from_request(*r, &tf);
  const bool dma = is_dma_phase(r->data_phase) || is_dma_command(tf.command);
  const int result =
      sg16(fd, write, dma, &tf, bytes == 0 ? nullptr : data, static_cast<unsigned int>(bytes), timeout_secs);
  if (result != 0 && is_refused(errno))
  {
    if (verbose != 0)
    {
      fputs("Trying legacy HDIO_DRIVE_TASKFILE\n", stderr);
    }
    return ioctl(fd, HDIO_DRIVE_TASKFILE, r);
  }
  if (result == 0 || errno == EIO)
  {
    put_registers(r, tf, tf.error, tf.status);
    r->in_flags = returned_flags(tf);
  }
  return result;
}
