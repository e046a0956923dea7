// Downloads from HTTP servers that other people wrote.

#include <devcomm/http_download.h>

#include "support/http_servers.h"
#include "support/server_process.h"
#include "support/tcp_peer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

namespace
{

/// A scratch folder with 3 MB of random bytes to serve, and the server that does it.
class Site
{
public:
  using SetUp = HttpServerSetup (*)(const std::string& scratch, int port);

  explicit Site(SetUp setUp)
  {
    std::filesystem::create_directories(m_scratch + "/www");
    chmod(m_scratch.c_str(), 0755);
    std::mt19937 random(6);
    for (size_t i = 0; i + 4 <= file.size(); i += 4)
    {
      const auto word = static_cast<uint32_t>(random());
      memcpy(&file[i], &word, 4);
    }
    std::ofstream(m_scratch + "/www/file", std::ios::binary) << file;
    m_setup = setUp(m_scratch, m_port);
  }
  ~Site()
  {
    Stop();
    std::filesystem::remove_all(m_scratch);
  }
  const std::string& Missing() const
  {
    return m_setup.missing;
  }
  bool Start()
  {
    m_server = std::make_unique<ServerProcess>(m_setup.arguments);
    return m_server->Listens(m_port);
  }
  void Stop()
  {
    m_server.reset();
  }

  /// Downloads to a file that holds the first bytes already. @return what the file holds then
  std::string Download(const std::string& path, size_t before, int expected)
  {
    Put(before);
    std::string url = "http://127.0.0.1:" + std::to_string(m_port) + path;
    testing::internal::CaptureStdout();
    const int result = http_download(&url[0], &m_target[0]);
    said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, expected) << said.substr(0, 1000);
    std::string got(Stored(), '\0');
    std::ifstream(m_target, std::ios::binary).read(&got[0], static_cast<std::streamsize>(got.size()));
    return got;
  }
  void Put(size_t before) const
  {
    std::ofstream(m_target, std::ios::binary) << file.substr(0, before);
  }
  size_t Stored() const
  {
    return static_cast<size_t>(std::filesystem::file_size(m_target));
  }

  std::string file = std::string(3000001, '\0');
  std::string said;

private:
  std::string m_scratch = testing::TempDir() + "http_peers_" + std::to_string(getpid());
  std::string m_target = m_scratch + "/got";
  int m_port = free_port();
  HttpServerSetup m_setup;
  std::unique_ptr<ServerProcess> m_server;
};

void download_all_ways(Site& site)
{
  ASSERT_TRUE(site.Start());
  std::mt19937 random(7);
  EXPECT_TRUE(site.Download("/file", 0, 0) == site.file);
  EXPECT_TRUE(site.Download("/moved", 0, 0) == site.file);
  EXPECT_NE(site.said.find("redirect: http://127.0.0.1:"), std::string::npos);
  EXPECT_TRUE(site.Download("/chunked.cgi", 0, 0) == site.file);
  EXPECT_NE(site.said.find("part len: 0\n"), std::string::npos);
  for (int i = 0; i < 5; ++i)
  {
    EXPECT_TRUE(site.Download("/file", random() % site.file.size(), 0) == site.file);
    EXPECT_NE(site.said.find("http status code: 206\n"), std::string::npos);
  }
  EXPECT_TRUE(site.Download("/file", site.file.size(), -1) == site.file);
  EXPECT_NE(site.said.find("Not supported http code 416\n"), std::string::npos);
  EXPECT_TRUE(site.Download("/absent", 10, -1) == site.file.substr(0, 10));
  EXPECT_NE(site.said.find("Page not found\n"), std::string::npos);

  // The server goes down in the middle, and the next call gets the rest from its successor.
  site.Put(0);
  std::thread ender(
      [&site]
      {
        EXPECT_TRUE(eventually([&site] { return site.Stored() > 200000; }));
        site.Stop();
      });
  const std::string part = site.Download("/slow/file", 0, -1);
  ender.join();
  EXPECT_LT(part.size(), site.file.size());
  EXPECT_TRUE(site.file.compare(0, part.size(), part) == 0);
  ASSERT_TRUE(site.Start());
  EXPECT_TRUE(site.Download("/file", part.size(), 0) == site.file);
}

} // namespace

TEST(HttpPeers, NginxServesPlainRangedRedirectedChunkedAndCutBodies)
{
  Site site(set_up_nginx);
  if (!site.Missing().empty())
  {
    GTEST_SKIP() << site.Missing();
  }
  download_all_ways(site);
}

TEST(HttpPeers, LighttpdServesPlainRangedRedirectedChunkedAndCutBodies)
{
  Site site(set_up_lighttpd);
  if (!site.Missing().empty())
  {
    GTEST_SKIP() << site.Missing();
  }
  download_all_ways(site);
}
