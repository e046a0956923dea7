// Download of a large file on loopback: this client and curl take turns at the same server. curl's time is its
// own figure for the transfer, without the start of its process.

#include "comm_data/rounds.h"
#include "comm_net/bench_server.h"
#include "support/http_servers.h"

#include <devcomm/http_download.h>

#include <cstdlib>
#include <filesystem>

namespace
{

constexpr size_t kFileSize = 256 << 20;
constexpr int kRounds = 9;

double download_ours(std::string url, std::string path)
{
  std::filesystem::remove(path);
  auto job = [&]
  {
    if (http_download(&url[0], &path[0]) != 0)
    {
      fail("http_download");
    }
  };
  return seconds_of(job);
}

double download_curl(const std::string& url, const std::string& path)
{
  std::filesystem::remove(path);
  FILE* curl = popen(("curl -s -o " + path + " -w '%{time_total}' " + url).c_str(), "r");
  double seconds = 0;
  if (curl == nullptr || fscanf(curl, "%lf", &seconds) != 1 || pclose(curl) != 0 ||
      std::filesystem::file_size(path) != kFileSize)
  {
    fail("curl");
  }
  return seconds;
}

void write_source(const std::string& path)
{
  std::ofstream file(path, std::ios::binary);
  std::string block(1 << 20, '\0');
  for (size_t i = 0; i < kFileSize; i += block.size())
  {
    for (size_t at = 0; at < block.size(); ++at)
    {
      block[at] = static_cast<char>((i + at) * 2654435761U >> 24);
    }
    file << block;
  }
}

} // namespace

int main()
{
  table(); // from here on the library's lines are not seen
  const std::string scratch =
      std::filesystem::temp_directory_path() / ("http_bench_" + std::to_string(getpid()));
  std::filesystem::create_directories(scratch + "/www");
  const int port = free_port();
  const PeerSetup setup = set_up_nginx(scratch, port);
  if (!setup.missing.empty() || system("curl --version >/dev/null 2>&1") != 0)
  {
    fprintf(table(), "without nginx and curl there is nothing to measure\n");
    std::filesystem::remove_all(scratch);
    return 0;
  }
  write_source(scratch + "/www/file");
  {
    const BenchServer server(setup.arguments);
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/file";
    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> ratios;
    for (int i = server.Listens(port) ? -1 : kRounds; i < kRounds; ++i)
    {
      const double a = download_ours(url, scratch + "/ours");
      const double b = download_curl(url, scratch + "/theirs");
      if (i >= 0) // the first round warms the caches
      {
        ours.push_back(a);
        theirs.push_back(b);
        ratios.push_back(b / a);
      }
    }
    if (!ours.empty())
    {
      const double a = median(ours);
      const double b = median(theirs);
      fprintf(table(), "| http_download, 256 MiB from nginx | curl | %.2f | %.0f MB/s, %.0f MB/s |\n",
              median(ratios), kFileSize / a / 1e6, kFileSize / b / 1e6);
    }
  }
  std::filesystem::remove_all(scratch);
  return 0;
}
