#include <devcomm/disk_command.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <linux/hdreg.h>
#include <random>
#include <scsi/sg.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

// Sense data as libata gives them: key 1 "recovered", then the ATA Status Return descriptor.
Bytes registers(unsigned char status, unsigned char error = 0)
{
  return {0x72,  1,    0,    0x1D, 0,    0,    0,    14,   0x09, 12,   1,
          error, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x5A, status};
}

class DiskCommand;
DiskCommand* g_kernel; // answers every ioctl of the test program while there is one, in place of the kernel

class DiskCommand : public testing::Test
{
public:
  DiskCommand()
  {
    g_kernel = this;
  }
  ~DiskCommand() override
  {
    g_kernel = nullptr;
    verbose = 0;
    prefer_ata12 = 0;
  }

  int answer(unsigned long request, void* argument)
  {
    if (request != SG_IO)
    {
      m_legacy.push_back(request);
      errno = ENOMSG;
      return m_legacyResult;
    }
    auto* io = static_cast<sg_io_hdr_t*>(argument);
    m_blocks.emplace_back(io->cmdp, io->cmdp + io->cmd_len);
    m_request = *io;
    if (m_error != 0)
    {
      errno = m_error;
      return -1;
    }
    io->status = m_status;
    io->host_status = m_hostStatus;
    io->driver_status = m_driverStatus;
    memcpy(io->sbp, m_sense.data(), std::min<size_t>(m_sense.size(), io->mx_sb_len));
    if (io->dxfer_direction == SG_DXFER_TO_DEV)
    {
      m_sent.assign(static_cast<char*>(io->dxferp), io->dxfer_len);
    }
    else if (io->dxferp != nullptr)
    {
      m_cleared = m_cleared && static_cast<char*>(io->dxferp)[io->dxfer_len - 1] == 0;
      memset(io->dxferp, 'd', io->dxfer_len);
    }
    return 0;
  }

  // One command without data: its result, or its errno.
  int flush()
  {
    tf_init(&m_tf, 0xE7, 0, 0);
    errno = 0;
    return sg16(7, 0, 0, &m_tf, nullptr, 0, 0) == 0 ? 0 : errno;
  }

  template <typename Call>
  std::string said(Call call)
  {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
  }

  ata_tf m_tf = {};
  unsigned char m_status = 0;
  unsigned short m_hostStatus = 0;
  unsigned short m_driverStatus = 0;
  int m_error = 0;
  int m_legacyResult = 0;
  Bytes m_sense = registers(0x50);
  std::vector<Bytes> m_blocks;
  std::vector<unsigned long> m_legacy;
  sg_io_hdr_t m_request = {};
  std::string m_sent;
  bool m_cleared = true;
};

bool is_48(unsigned char cmd, unsigned long long lba, unsigned int nsect)
{
  ata_tf tf;
  tf_init(&tf, cmd, lba, nsect);
  const unsigned long long kept = lba & (tf.is_lba48 != 0 ? 0xFFFFFFFFFFFF : 0x0FFFFFFF);
  EXPECT_EQ(tf_to_lba(&tf), kept);
  EXPECT_EQ(tf.nsect | (tf.hob_nsect << 8),
            static_cast<int>(tf.is_lba48 != 0 ? nsect & 0xFFFF : nsect & 0xFF));
  EXPECT_EQ(tf.dev, tf.is_lba48 != 0 ? 0x40 : 0x40 | (lba >> 24 & 0xF));
  return tf.is_lba48 != 0;
}

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return g_kernel != nullptr ? g_kernel->answer(request, argument)
                             : static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

TEST_F(DiskCommand, AddressesTakeTheFormThatHoldsThem)
{
  EXPECT_TRUE(is_48(0xC8, 0x0FFFFFFF, 1) && is_48(0xC8, 0x0FFFFFFF, 0) && is_48(0xC8, 0x0FFFFFF0, 16));
  EXPECT_FALSE(is_48(0xC8, 0x0FFFFFFE, 1) || is_48(0xC8, 0x0FFFFFFE, 0) || is_48(0xC8, 0x0FFFFFF0, 15));
  EXPECT_TRUE(is_48(0xC8, 0, 256) && is_48(0xC8, 0x100000000, 0) && is_48(0xC8, 0xFEDCBA987654, 0x1234));
  EXPECT_FALSE(is_48(0xC8, 0x7654321, 255));
  for (const unsigned char cmd : Bytes{0x06, 0x24, 0x25, 0x27, 0x34, 0x35, 0x37, 0x42, 0x45, 0xEA})
    EXPECT_TRUE(is_48(cmd, 0, 8)) << int{cmd};
  for (const unsigned char cmd : Bytes{0x80, 0xB0, 0xF3, 0xF4})
    EXPECT_FALSE(is_48(cmd, 0xFEDCBA987654, 0x1234)) << int{cmd};
}

TEST_F(DiskCommand, BlocksOnTheWire)
{
  char data[1024] = "out";
  tf_init(&m_tf, 0x35, 0xA1A2A3A4A5A6, 0xB1B2);
  m_tf.feat = 0xC1;
  m_tf.hob_feat = 0xC2;
  prefer_ata12 = 1;
  EXPECT_EQ(sg16(7, 1, 1, &m_tf, data, sizeof data, 3), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0x85, 0x0D, 0x06, 0xC2, 0xC1, 0xB1, 0xB2, 0xA3, 0xA6, 0xA2, 0xA5, 0xA1,
                                    0xA4, 0x40, 0x35, 0}));
  EXPECT_TRUE(m_request.timeout == 3000 && m_request.interface_id == 'S' && m_request.mx_sb_len == 32);
  EXPECT_EQ(m_sent, std::string(data, sizeof data));

  tf_init(&m_tf, 0xEC, 0x7040302, 1);
  data[1023] = 'x';
  EXPECT_EQ(sg16(7, 0, 0, &m_tf, data, 512, 0xFFFFFFFF), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0xA1, 0x08, 0x0E, 0, 1, 2, 3, 4, 0x47, 0xEC, 0, 0}));
  EXPECT_TRUE(m_request.timeout == 0xFFFFFFFF && m_request.dxfer_direction == SG_DXFER_FROM_DEV && m_cleared);
  EXPECT_TRUE(data[0] == 'd' && data[511] == 'd' && data[512] == 0 && data[1023] == 'x');

  m_tf.command = 0xA1;
  EXPECT_EQ(sg16(7, 1, 0, &m_tf, data, 512, 0), 0);
  EXPECT_TRUE(m_blocks.back().size() == 16 && m_blocks.back()[1] == 0x0A && m_request.timeout == 15000);
  prefer_ata12 = 0;
  EXPECT_EQ(flush(), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0x85, 0x06, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0xE7, 0}));
  EXPECT_EQ(m_request.dxfer_direction, SG_DXFER_NONE);
  EXPECT_EQ(sg16(7, 0, 0, nullptr, nullptr, 0, 0), -1);
}

TEST_F(DiskCommand, RegistersComeBackFromTheSenseData)
{
  tf_init(&m_tf, 0x27, 0, 0);
  m_sense = registers(0x50, 0x04);
  EXPECT_EQ(sg16(7, 0, 0, &m_tf, nullptr, 0, 0), 0);
  EXPECT_EQ(tf_to_lba(&m_tf), 0x181614191715U);
  EXPECT_TRUE(m_tf.hob_nsect == 0x12 && m_tf.nsect == 0x13 && m_tf.dev == 0x5A && m_tf.status == 0x50 &&
              m_tf.error == 4);
  EXPECT_EQ(flush(), 0);
  EXPECT_TRUE(m_tf.lbah == 0x19 && m_tf.hob_lbah == 0); // a 28-bit command has no high-order bytes

  // Another descriptor first.
  m_sense = registers(0x51);
  m_sense[7] = 18;
  m_sense.insert(m_sense.begin() + 8, {0x02, 2, 0, 0});
  EXPECT_EQ(flush(), EIO);

  for (unsigned int status = 0; status < 256; ++status)
  {
    m_sense = registers(static_cast<unsigned char>(status));
    EXPECT_EQ(flush(), (status & 9) != 0 ? EIO : 0) << status;
  }
}

TEST_F(DiskCommand, SenseDataWithoutRegisters)
{
  m_status = 2;
  m_driverStatus = 8;
  const Bytes whole = registers(0x51);
  const auto with = [&whole](size_t at, unsigned char value)
  {
    Bytes changed = whole;
    changed[at] = value;
    return changed;
  };
  verbose = 1;
  for (const Bytes& sense : {Bytes{}, Bytes{0x70, 0, 1, 0, 0, 0, 0, 14, 9, 12}, with(0, 0x73), with(7, 13),
                             with(8, 8), with(7, 0)})
  {
    m_sense = sense;
    EXPECT_NE(said([&] { EXPECT_EQ(flush(), 0); }).find("SG_IO: bad/missing sense data, sb[]:  "),
              std::string::npos);
    EXPECT_TRUE(m_tf.status == 0 && m_tf.nsect == 0); // nothing to judge by
  }
  verbose = 0;
  const std::pair<Bytes, int> reports[] = {
      // Illegal request, unit attention, deferred errors: the disk was never asked.
      {{0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20}, EBADE},
      {{0x72, 6, 0x29}, EBADE},
      {{0x73, 4}, EBADE},
      {{0x71, 0, 11}, EBADE},
      {{0x70, 0, 11, 0, 0, 0, 0, 10, 4, 0x41, 0xE0}, EIO},
      {{0x72, 3, 0x11}, EIO},
      {{0xF0, 0, 4}, EIO}};
  for (const auto& [sense, error] : reports)
  {
    m_sense = sense;
    EXPECT_EQ(flush(), error);
  }
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i)
  {
    m_sense.resize(32);
    std::generate(m_sense.begin(), m_sense.end(), [&] { return static_cast<unsigned char>(random()); });
    m_sense[0] = 0x72;
    m_sense[7] |= 0x10;
    const int result = flush();
    EXPECT_TRUE(result == 0 || result == EIO || result == EBADE);
  }
}

TEST_F(DiskCommand, DoubtfulRegistersAreReadWithAWarning)
{
  verbose = 1;
  const std::string warning = "SG_IO: questionable sense data, results may be incorrect\n";
  EXPECT_EQ(said([this] { flush(); }),
            "outgoing cdb:  85 06 20 00 00 00 00 00 00 00 00 00 00 40 e7 00\n"
            "SG_IO: ATA_16 status=0x0, host_status=0x0, driver_status=0x0\n"
            "      ATA_16 stat=50 err=00 nsect=13 lbal=15 lbam=17 lbah=19 dev=5a\n");
  Bytes zero(22);
  memcpy(zero.data(), registers(0).data(), 10);
  Bytes longer = registers(0x50);
  longer[9] = 13;
  for (const Bytes& sense : {registers(0xD0), registers(0x70), zero, longer})
  {
    m_sense = sense;
    EXPECT_NE(said([this] { flush(); }).find(warning + "      ATA_16 stat="), std::string::npos);
  }
  m_sense = registers(0x41, 0x84);
  EXPECT_NE(said([this] { flush(); }).find("I/O error, ata_op=0xe7 ata_status=0x41 ata_error=0x84\n"),
            std::string::npos);
}

TEST_F(DiskCommand, StatusesOfTheTransport)
{
  for (unsigned int value = 0; value < 256; ++value)
  {
    m_status = static_cast<unsigned char>(value);
    EXPECT_EQ(flush(), (value & ~2U) != 0 ? EBADE : 0) << value;
    m_status = 0;
    m_hostStatus = static_cast<unsigned short>(value);
    EXPECT_EQ(flush(), value != 0 ? EBADE : 0) << value;
    m_hostStatus = 0;
    m_driverStatus = static_cast<unsigned short>(value);
    EXPECT_EQ(flush(), (value & ~8U) != 0 ? EBADE : 0) << value;
    m_driverStatus = 0;
  }
  m_error = EPERM;
  EXPECT_EQ(said([this] { EXPECT_EQ(flush(), EPERM); }), "ioctl(fd,SG_IO): Operation not permitted\n");
  verbose = 1;
  m_error = 0;
  m_hostStatus = 3;
  EXPECT_NE(said([this] { flush(); }).find("SG_IO: bad host status: 0x3\n"), std::string::npos);
}

TEST_F(DiskCommand, LegacyArguments)
{
  Bytes args(4 + 512, 0xEE);
  const auto drive =
      [&args](unsigned char command, unsigned char first, unsigned char feature, unsigned char count)
  {
    std::copy_n(Bytes{command, first, feature, count}.data(), 4, args.data());
    return do_drive_cmd(7, args.data(), 0);
  };
  EXPECT_EQ(drive(0xEC, 0, 7, 1), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0x85, 0x08, 0x0E, 0, 7, 0, 1, 0, 0, 0, 0, 0, 0, 0x40, 0xEC, 0}));
  EXPECT_TRUE(args[0] == 0x50 && args[1] == 0 && args[2] == 0x13 && args[4] == 'd' && args[515] == 'd');
  EXPECT_EQ(drive(0xB0, 5, 0xD0, 1), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0x85, 0x08, 0x0E, 0, 0xD0, 0, 1, 0, 5, 0, 0x4F, 0, 0xC2, 0x40, 0xB0, 0}));
  EXPECT_EQ(drive(0xC8, 9, 0, 1), 0); // moves its data by DMA
  EXPECT_TRUE(m_blocks.back()[1] == 0x0C && m_blocks.back()[6] == 9);

  m_sense = registers(0x51, 0x04);
  EXPECT_EQ(drive(0xE3, 0xF0, 0, 0), -1);
  EXPECT_TRUE(errno == EIO && args[0] == 0x51 && args[1] == 4 && m_legacy.empty());

  for (const int error : {EINVAL, ENODEV, EBADE, ENOTTY, EPERM})
  {
    m_legacy.clear();
    m_error = error;
    m_legacyResult = 5;
    int result = 0;
    said([&] { result = drive(0xE7, 0, 0, 0); });
    const bool isRefused = error == EINVAL || error == ENODEV || error == EBADE;
    EXPECT_EQ(m_legacy.size(), isRefused ? 1U : 0U);
    EXPECT_TRUE(args[0] == 0xE7 && (isRefused ? result == 5 : result == -1 && errno == error)) << error;
  }
  m_legacy.clear();
  EXPECT_EQ(do_drive_cmd(7, nullptr, 0), 5);
  EXPECT_EQ(m_legacy, std::vector<unsigned long>{HDIO_DRIVE_CMD});
}

TEST_F(DiskCommand, TaskfileRequests)
{
  struct
  {
    hdio_taskfile head;
    char data[512];
  } task;
  // Written by the kernel's own names.
  ide_task_request_t raw = {};
  raw.io_ports[7] = 0x35;
  raw.io_ports[2] = 1;
  raw.hob_ports[3] = 0x77;
  raw.io_ports[4] = 0x99; // not flagged: not sent
  raw.out_flags.b.nsector = 1;
  raw.out_flags.b.sector_hob = 1;
  raw.data_phase = TASKFILE_OUT_DMA;
  raw.req_cmd = IDE_DRIVE_TASK_OUT;
  raw.out_size = 512;
  memcpy(&task.head, &raw, sizeof raw);
  memset(task.data, 'w', sizeof task.data);
  m_sense = registers(0x50);
  EXPECT_EQ(do_taskfile_cmd(7, &task.head, 0), 0);
  EXPECT_EQ(m_blocks.back(), (Bytes{0x85, 0x0D, 0x06, 0, 0, 0, 1, 0x77, 0, 0, 0, 0, 0, 0x40, 0x35, 0}));
  EXPECT_EQ(m_sent, std::string(512, 'w'));
  memcpy(&raw, &task.head, sizeof raw);
  EXPECT_TRUE(raw.io_ports[7] == 0x50 && raw.io_ports[2] == 0x13 && raw.hob_ports[5] == 0x18);
  EXPECT_TRUE(raw.in_flags.b.nsector_hob && raw.in_flags.b.status_command && !raw.in_flags.b.data);

  // There and back: what init_hdio_taskfile writes, do_taskfile_cmd sends.
  std::mt19937_64 random(2);
  for (int i = 0; i < 500; ++i)
  {
    const auto cmd = static_cast<unsigned char>(random());
    tf_init(&m_tf, cmd, random() >> (random() % 64), random() % 2 != 0 ? 1 : 300);
    m_tf.feat = cmd;
    m_tf.hob_feat = m_tf.is_lba48 != 0 ? static_cast<unsigned char>(random()) : 0;
    const bool write = random() % 2 != 0;
    const unsigned int bytes = random() % 2 != 0 ? 512 : 0;
    init_hdio_taskfile(&task.head, &m_tf, write, bytes);
    do_taskfile_cmd(7, &task.head, 0);
    const bool dma =
        cmd == 6 || cmd == 0x25 || cmd == 0x35 || cmd == 0x60 || cmd == 0x61 || cmd == 0xC8 || cmd == 0xCA;
    char data[512] = {};
    sg16(7, write, dma, &m_tf, data, bytes, 0);
    EXPECT_EQ(m_blocks.back(), m_blocks.end()[-2]);
  }

  m_error = ENODEV;
  m_legacyResult = 6;
  EXPECT_EQ(said([&] { EXPECT_EQ(do_taskfile_cmd(7, &task.head, 0), 6); }),
            "ioctl(fd,SG_IO): No such device\n");
  EXPECT_EQ(m_legacy, std::vector<unsigned long>{HDIO_DRIVE_TASKFILE});
  task.head.in_size = ~0UL;
  EXPECT_TRUE(do_taskfile_cmd(7, &task.head, 0) == -1 && errno == EINVAL &&
              do_taskfile_cmd(7, nullptr, 0) == -1);
}

TEST_F(DiskCommand, SleepAndFlushServices)
{
  const auto commands = [this]
  {
    Bytes sent;
    for (const Bytes& block : m_blocks)
      sent.insert(sent.end(), {block[14], block[4], block[6]});
    m_blocks.clear();
    return sent;
  };
  EXPECT_EQ(ShutdownHD("/dev/null"), 0);
  EXPECT_EQ(commands(), (Bytes{0xE6, 0, 0}));
  EXPECT_TRUE(ShutdownHD("/nowhere") == -1 && ShutdownHD(nullptr) == -1);
  EXPECT_TRUE(HDD_flush_wcache(0, "/dev/null", 0) == 0 && m_request.timeout == 3000);
  EXPECT_TRUE(HDD_flush_wcache(7, nullptr, 1) == 0 && HDD_flush_wcache(0, "/nowhere", 0) == -1);
  EXPECT_EQ(commands(), (Bytes{0xE7, 0, 0, 0xE7, 0, 0}));
  EXPECT_EQ(HDD_flush_wcache(0, nullptr, 0), 0);

  m_sense = registers(0x51, 0x04);
  EXPECT_EQ(said([] { EXPECT_EQ(ShutdownHD("/dev/null"), 0); }),
            " HDIO_DRIVE_CMD(sleep) failed: Input/output error\n");
  EXPECT_EQ(commands(),
            (Bytes{0xE6, 0, 0, 0x99, 0, 0})); // the first answer does not leak into the second try
  EXPECT_EQ(said([] { EXPECT_EQ(HDD_flush_wcache(-1, "/dev/null", 0), EIO); }),
            " HDIO_DRIVE_CMD(flushcache) failed: Input/output error\n");
  m_error = EINVAL;
  m_legacyResult = -1;
  EXPECT_EQ(
      said([] { EXPECT_EQ(HDD_flush_wcache(7, "/nowhere", 0), ENOMSG); }),
      "ioctl(fd,SG_IO): Invalid argument\n HDIO_DRIVE_CMD(flushcache) failed: No message of desired type\n");
}
