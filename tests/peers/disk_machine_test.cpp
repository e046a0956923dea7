// Boots an emulated machine (qemu-system with the distribution's kernel) whose only process sends ATA commands to
// an emulated disk; see tests/guests/disk_guest.cpp. Only in native builds without sanitizers.

#include "support/process.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <glob.h>
#include <sstream>
#include <string>

#ifdef DEVCOMM_DISK_GUEST

namespace
{

std::string first_match(const std::string& pattern)
{
  glob_t found = {};
  const bool any = glob(pattern.c_str(), 0, nullptr, &found) == 0 && found.gl_pathc > 0;
  const std::string path = any ? found.gl_pathv[found.gl_pathc - 1] : "";
  globfree(&found);
  return path;
}

// A cpio archive in the kernel's "newc" form.
class Archive
{
public:
  void add(const std::string& name, unsigned int mode, const std::string& data)
  {
    char head[111];
    snprintf(head, sizeof head, "070701%08x%08x%08x%08x%08x%08x%08x%08x%08x%08x%08x%08x%08x", ++m_inode, mode,
             0, 0, 1, 0, static_cast<unsigned int>(data.size()), 0, 0, 0, 0,
             static_cast<unsigned int>(name.size() + 1), 0);
    m_bytes += head + name + '\0';
    pad();
    m_bytes += data;
    pad();
  }
  const std::string& finish()
  {
    add("TRAILER!!!", 0, "");
    return m_bytes;
  }

private:
  void pad()
  {
    m_bytes.append((4 - m_bytes.size() % 4) % 4, '\0');
  }
  unsigned int m_inode = 0;
  std::string m_bytes;
};

class DiskMachine : public testing::Test
{
protected:
  std::string file(const std::string& name, const std::string& bytes)
  {
    const std::string path = m_folder.path + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // Finds a kernel together with the modules it needs to see an IDE disk.
  bool find_kernel()
  {
    for (const std::string top : {DEVCOMM_SOURCE_DIR "/build/guest", ""})
    {
      const std::string images = top + "/boot/vmlinuz-";
      m_kernel = first_match(images + "*");
      const std::string release = m_kernel.empty() ? "" : m_kernel.substr(images.size());
      m_modules = top + "/lib/modules/" + release + "/kernel/drivers/";
      if (!m_kernel.empty() && !first_match(m_modules + "ata/ata_piix.ko").empty())
        return true;
    }
    return false;
  }

  std::string root_file()
  {
    Archive root;
    root.add("init", 0100755, contents(DEVCOMM_DISK_GUEST));
    root.add("modules", 040755, "");
    for (const std::string name :
         {"ata/ata_piix.ko", "ata/libata.ko", "scsi/scsi_common.ko", "scsi/scsi_mod.ko", "scsi/sd_mod.ko"})
      root.add("modules/" + name.substr(name.find('/') + 1), 0100644, contents(m_modules + name));
    return file("root", root.finish());
  }

  // What the machine says on its serial line until it ends.
  std::string run(const std::string& root, const std::string& disk)
  {
    Process machine({"qemu-system-x86_64", "-M", "pc,accel=tcg", "-m", "192", "-nodefaults", "-display",
                     "none", "-serial", "stdio", "-no-reboot", "-kernel", m_kernel, "-initrd", root, "-drive",
                     "file=" + disk + ",format=raw,if=ide", "-append",
                     "console=ttyS0 quiet panic=-1 mitigations=off no_timer_check"});
    std::string text;
    for (std::string part = "-"; !part.empty(); text += part)
      part = machine.read_until(1);
    machine.signal(SIGKILL);
    m_missing = machine.wait() == 127; // it never started
    return text;
  }

  ScratchFolder m_folder;
  std::string m_kernel;
  std::string m_modules;
  bool m_missing = false;
};

} // namespace

TEST_F(DiskMachine, TheDiskFlushesSleepsAndWakes)
{
  if (!find_kernel())
    GTEST_SKIP() << "no kernel with its ata_piix module (scripts/guest fetches one)";
  std::string sectors(8 << 20, '\0');
  sectors.replace(3 * 512, 1024, std::string(512, 'P') + std::string(512, 'D'));
  const std::string disk = file("disk", sectors);
  const std::string said = run(root_file(), disk);
  if (m_missing)
    GTEST_SKIP() << "qemu-system-x86_64 is not installed";
  std::string lines;
  std::istringstream console(said);
  for (std::string line; std::getline(console, line);)
    if (line.rfind("guest: ", 0) == 0)
      lines += line.substr(7, line.find_last_not_of('\r') - 6) + "\n";
  EXPECT_EQ(lines, "identify 0\nmodel's letter 81\nunknown command 5\n" // EIO
                   "read native max 0\nlast sector 16383\n"
                   "read by PIO 0\nfirst byte 80\nread by 48-bit DMA 0\nfirst byte 68\n"
                   "write by DMA 0\nread past the end 5\n"
                   "flush by descriptor 0\nflush by path 0\nsleep 0\nread after sleep 512\nfirst byte 87\n"
                   "flush by short block 0\n")
      << said;
  EXPECT_NE(said.find("waking up from sleep"), std::string::npos); // says the kernel
  EXPECT_NE(said.find("outgoing cdb:  a1 06 20 00 00 00 00 00 40 e7 00 00"), std::string::npos);
  EXPECT_EQ(contents(disk).substr(5 * 512, 512), std::string(512, 'W'));
}

#endif
