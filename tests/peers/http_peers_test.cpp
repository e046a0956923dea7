// Downloads from HTTP servers that other people wrote.

#include <devcomm/http_download.h>

#include "support/http_servers.h"
#include "support/measure.h"
#include "support/server_process.h"

#include <random>
#include <thread>

namespace
{

/// A scratch folder with 3 MB of random bytes to serve, and the server that does it.
class HttpPeers : public ServedTest
{
protected:
  void SetUp() override
  {
    std::filesystem::create_directories(scratch.path + "/www");
    std::generate(file.begin(), file.end(), [this] { return static_cast<char>(random()); });
    std::ofstream(scratch.path + "/www/file", std::ios::binary) << file;
    Serve();
  }

  /// Downloads to a file that holds the first bytes already. @return what the file holds then
  std::string Download(const std::string& path, size_t before, int expected)
  {
    Put(before);
    std::string url = "http://127.0.0.1:" + std::to_string(port) + path;
    CaptureStdout();
    const int result = http_download(&url[0], &m_target[0]);
    m_said = GetCapturedStdout();
    EXPECT_EQ(result, expected) << m_said.substr(0, 1000);
    return contents(m_target);
  }
  void Put(size_t before) const
  {
    std::ofstream(m_target, std::ios::binary) << file.substr(0, before);
  }
  bool Said(const char* text) const
  {
    return m_said.find(text) != std::string::npos;
  }

  std::mt19937 random{6};
  std::string file = std::string(3000001, '\0');
  std::string m_said;
  std::string m_target = scratch.path + "/got";
};

TEST_P(HttpPeers, ServesPlainRangedRedirectedChunkedAndCutBodies)
{
  EXPECT_TRUE(Download("/file", 0, 0) == file);
  EXPECT_TRUE(Download("/moved", 0, 0) == file && Said("redirect: http://127.0.0.1:"));
  EXPECT_TRUE(Download("/chunked.cgi", 0, 0) == file && Said("part len: 0\n"));
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(Download("/file", random() % file.size(), 0) == file && Said("http status code: 206\n"));
  EXPECT_TRUE(Download("/file", file.size(), -1) == file && Said("Not supported http code 416\n"));
  EXPECT_TRUE(Download("/absent", 10, -1) == file.substr(0, 10) && Said("Page not found\n"));

  // The server goes down in the middle, and the next call gets the rest from its successor.
  Put(0);
  std::thread ender(
      [this]
      {
        EXPECT_TRUE(eventually([this] { return std::filesystem::file_size(m_target) > 200000; }));
        server.reset();
      });
  const std::string part = Download("/slow/file", 0, -1);
  ender.join();
  EXPECT_LT(part.size(), file.size());
  EXPECT_TRUE(file.compare(0, part.size(), part) == 0);
  ASSERT_NO_FATAL_FAILURE(Start());
  EXPECT_TRUE(Download("/file", part.size(), 0) == file);
}

std::string server_name(const testing::TestParamInfo<SetUpPeer>& server)
{
  return server.param == set_up_nginx ? "Nginx" : "Lighttpd";
}

INSTANTIATE_TEST_SUITE_P(Real, HttpPeers, testing::Values(set_up_nginx, set_up_lighttpd), server_name);

} // namespace
