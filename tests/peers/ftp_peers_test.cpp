// The FTP client against real servers: a clip goes up and down in pieces, cut at random places, and arrives whole.

#include <devcomm/ftp_client.h>

#include "support/ftp_servers.h"
#include "support/server_process.h"

#include <cstring>
#include <random>

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr size_t kClipSize = 5000000;
#else
constexpr size_t kClipSize = 50000000;
#endif
constexpr int kCuts = 20;

int log_nothing(unsigned int /*level*/, const char* /*format*/, ...) // NOLINT(cert-dcl50-cpp)
{
  return 0;
}

class FtpPeers : public ServedTest
{
protected:
  void SetUp() override
  {
    std::filesystem::create_directories(scratch.path + "/pub/clips");
    chmod((scratch.path + "/pub/clips").c_str(), 0777);
    Serve();
  }

  /// Starts a session that has learnt the remote file's size.
  void Start(CFtpClient& client, int download)
  {
    UserDefServerSet_t settings{};
    settings.server_port = static_cast<uint16_t>(port);
    strcpy(settings.server_addr, "localhost");
    strcpy(settings.username, setup.user);
    strcpy(settings.password, setup.password);
    strcpy(settings.remotedir, "clips/2026");
    client.Init(log_nothing);
    client.FtpSetServerInfo(download, &settings);
    client.FtpSetLocalInfo("", "clip.bin");
    ASSERT_EQ(client.FtpStart(), 0);
    ASSERT_EQ(client.FtpGetServerDirFile(), 0);
  }

  static int EndOfTransfer(CFtpClient& client)
  {
    char line[201];
    client.FtpCloseSockFd(client.FtpGetClientData()->data_fd);
    return client.FtpGetRc(line, sizeof line);
  }
};

TEST_P(FtpPeers, AClipCutAtRandomPlacesArrivesWhole)
{
  std::mt19937_64 random(6);
  std::string clip(kClipSize, '\0');
  std::generate(clip.begin(), clip.end(), [&random] { return static_cast<char>(random()); });
  std::vector<size_t> ends(kCuts);
  std::generate(ends.begin(), ends.end(), [&random] { return random() % kClipSize; });
  std::sort(ends.begin(), ends.end());
  ends.push_back(kClipSize);

  size_t sent = 0;
  for (const size_t end : ends)
  {
    CFtpClient client;
    ASSERT_NO_FATAL_FAILURE(Start(client, 0));
    const ftp_sdk_data_t& data = *client.FtpGetClientData();
    ASSERT_LE(static_cast<size_t>(data.list_entries[0].size), sent);
    sent = static_cast<size_t>(data.list_entries[0].size); // a server may lose what was on the way at a cut
    ASSERT_EQ(client.FtpCreateDateSockFd(sent > 0 ? 1 : 0, 0), 0);
    const auto part = static_cast<unsigned int>(end - sent);
    ASSERT_EQ(client.FtpWriteDate(data.data_fd, clip.data() + sent, part, 5), static_cast<int>(part));
    sent = end;
    if (end == kClipSize)
    {
      EXPECT_EQ(EndOfTransfer(client), 226);
    }
    client.FtpCloseFd();
    EXPECT_TRUE(eventually([this] { return !server->Busy(); })); // it has done with what it received
  }
  EXPECT_TRUE(contents(scratch.path + "/pub/clips/2026/clip.bin") == clip);

  std::string received;
  for (const size_t end : ends)
  {
    CFtpClient client;
    ASSERT_NO_FATAL_FAILURE(Start(client, 1));
    const ftp_sdk_data_t& data = *client.FtpGetClientData();
    EXPECT_EQ(static_cast<size_t>(data.list_entries[0].size), kClipSize);
    ASSERT_EQ(client.FtpCreateDateSockFd(received.empty() ? 0 : 1, static_cast<int>(received.size())), 0);
    char block[65536];
    int got = 1;
    while (got > 0 && received.size() < end)
    {
      got = client.FtpReadDate(data.data_fd, block,
                               static_cast<unsigned int>(std::min(sizeof block, end - received.size())), 5);
      received.append(block, static_cast<size_t>(std::max(got, 0)));
    }
    if (end == kClipSize)
    {
      EXPECT_EQ(client.FtpReadDate(data.data_fd, block, 1, 5), 0);
      EXPECT_EQ(EndOfTransfer(client), 226);
      EXPECT_EQ(client.FtpDisconnect(), 0);
    }
    client.FtpCloseFd();
  }
  EXPECT_TRUE(received == clip);
}

std::string server_name(const testing::TestParamInfo<SetUpPeer>& server)
{
  return server.param == set_up_vsftpd ? "Vsftpd" : "PureFtpd";
}

INSTANTIATE_TEST_SUITE_P(Real, FtpPeers, testing::Values(set_up_vsftpd, set_up_pure_ftpd), server_name);

} // namespace
