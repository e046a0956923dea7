// Upload and download of a large file on loopback: this client and curl take turns at the same server.

#include <devcomm/ftp_client.h>

#include "comm_net/bench_server.h"
#include "support/ftp_servers.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

namespace
{

constexpr size_t kFileSize = 256 << 20;
constexpr int kRounds = 7;

void check(bool good, const char* what)
{
  if (!good)
  {
    fprintf(stderr, "ftp_bench: %s\n", what);
    exit(1);
  }
}

std::string scratch; // removed at the end, also when the benchmark fails

/// What one transfer needs to know.
struct Job
{
  int port;
  PeerSetup setup;
  bool download;

  std::string Source() const
  {
    return scratch + "/pub/source";
  }

  std::string Target(const char* who) const
  {
    return download ? scratch + "/got." + who : scratch + "/pub/up/" + who;
  }
};

void move_bytes(CFtpClient& client, int fd, const Job& job)
{
  static char block[262144];
  const int file = job.download
                       ? open(job.Target("ours").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)
                       : open(job.Source().c_str(), O_RDONLY | O_CLOEXEC);
  ssize_t got;
  if (job.download)
  {
    while ((got = client.FtpReadDate(fd, block, sizeof block, 5)) > 0)
    {
      check(write(file, block, static_cast<size_t>(got)) == got, "write");
    }
  }
  else
  {
    while ((got = read(file, block, sizeof block)) > 0)
    {
      check(client.FtpWriteDate(fd, block, static_cast<unsigned int>(got), 5) == got, "FtpWriteDate");
    }
  }
  check(got == 0 && close(file) == 0, "transfer");
}

double ours(const Job& job)
{
  const auto start = std::chrono::steady_clock::now();
  UserDefServerSet_t settings{};
  settings.server_port = static_cast<uint16_t>(job.port);
  strcpy(settings.server_addr, "127.0.0.1");
  strcpy(settings.username, job.setup.user);
  strcpy(settings.password, job.setup.password);
  strcpy(settings.remotedir, job.download ? "" : "up");
  CFtpClient client;
  client.FtpSetServerInfo(job.download ? 1 : 0, &settings);
  client.FtpSetLocalInfo("", job.download ? "source" : "ours");
  char line[1024];
  char type[] = "TYPE I\r\n";
  check(client.FtpStart() == 0 && client.FtpSendLine(type) > 0 && client.FtpGetRc(line, sizeof line) == 200 &&
            client.FtpCreateDateSockFd(0, 0) == 0,
        "session");
  const int fd = client.FtpGetClientData()->data_fd;
  move_bytes(client, fd, job);
  client.FtpCloseSockFd(fd);
  check(client.FtpGetRc(line, sizeof line) == 226, "completion");
  client.FtpDisconnect();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// curl's own figure: without the start of its process.
double curls(const Job& job)
{
  const std::string url = "ftp://127.0.0.1:" + std::to_string(job.port);
  const std::string files = job.download ? "-o " + job.Target("curl") + " " + url + "/source"
                                         : "-T " + job.Source() + " " + url + "/up/curl";
  const std::string command = std::string("curl -s --disable-epsv -w '%{time_total}' -u ") + job.setup.user +
                              ":" + job.setup.password + " " + files;
  FILE* out = popen(command.c_str(), "re");
  char text[32] = "";
  check(out != nullptr && fgets(text, sizeof text, out) != nullptr && pclose(out) == 0, "curl");
  return strtod(text, nullptr);
}

double median(std::vector<double> values)
{
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void row(const char* what, const Job& job)
{
  std::vector<double> a;
  std::vector<double> b;
  std::vector<double> ratios;
  for (int i = -1; i < kRounds; ++i)
  {
    for (const char* who : {"ours", "curl"})
    {
      unlink(job.Target(who).c_str());
    }
    const double us = ours(job);
    const double them = curls(job);
    if (i >= 0) // the first round warms up
    {
      a.push_back(us);
      b.push_back(them);
      ratios.push_back(them / us);
    }
  }
  for (const char* who : {"ours", "curl"})
  {
    check(std::filesystem::file_size(job.Target(who)) == kFileSize, "a short file");
  }
  printf("| %s | curl, same server | %.2f | %.0f MB/s, %.0f MB/s |\n", what, median(ratios),
         kFileSize / median(a) / 1e6, kFileSize / median(b) / 1e6);
  fflush(stdout);
}

void fill(const std::string& path)
{
  const std::string block(1 << 20, 'x');
  std::ofstream out(path, std::ios::binary);
  for (size_t i = 0; i < kFileSize; i += block.size())
  {
    out << block;
  }
  check(out.good(), "no room for the files");
}

} // namespace

int main()
{
  scratch = "/dev/shm/ftp_bench_XXXXXX";
  if (mkdtemp(scratch.data()) == nullptr)
  {
    scratch = "/tmp/ftp_bench_XXXXXX";
    check(mkdtemp(scratch.data()) != nullptr, "no scratch folder");
  }
  atexit([] { std::filesystem::remove_all(scratch); });
  chmod(scratch.c_str(), 0755);
  std::filesystem::create_directories(scratch + "/pub/up");
  chmod((scratch + "/pub/up").c_str(), 0777);
  Job job{free_port(), {}, false};
  job.setup = set_up_vsftpd(scratch, job.port);
  const std::string missing = !job.setup.missing.empty()           ? job.setup.missing
                              : access("/usr/bin/curl", X_OK) != 0 ? "curl is not installed"
                                                                   : "";
  if (missing.empty())
  {
    const BenchServer server(job.setup.arguments);
    check(server.Listens(job.port), "the server does not start");
    fill(job.Source());
    row("FTP upload, 256 MiB", job);
    job.download = true;
    row("FTP download, 256 MiB", job);
  }
  else
  {
    printf("| FTP, 256 MiB | curl, same server | - | skipped: %s |\n", missing.c_str());
  }
  return 0;
}
