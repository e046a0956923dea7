#include <devcomm/udp_client.h>

#include "internal/relaxed.h"

#include <devcomm/socket.h>

#include "support/measure.h"
#include "support/tcp_peer.h"

#include <fcntl.h>

#include <tuple>
#include <vector>

namespace
{

/// A service and a plain socket at its far end, both on loopback. The callback answers as the test says.
struct Service
{
  using Answer = std::function<int(SERVICE_STATE_E, const std::string&, udp_client_st*)>;

  explicit Service(Answer answer) : m_answer(std::move(answer))
  {
    auto* at = reinterpret_cast<sockaddr*>(&peerAddress);
    socklen_t len = sizeof peerAddress;
    peerAddress.sin_family = AF_INET;
    peerAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_TRUE(bind(peer, at, len) == 0 && getsockname(peer, at, &len) == 0);
  }
  ~Service()
  {
    if (client != nullptr)
      UdpClientUninit(client);
    close(peer);
  }
  int Start(bool isConnected = false)
  {
    sock = udp_unicast_init(0, &address);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (isConnected)
      connect(sock, reinterpret_cast<sockaddr*>(&peerAddress), sizeof peerAddress);
    events = std::make_unique<Events>([this](SERVICE_STATE_E state, const std::string& data, tcp_server_st*,
                                             tcp_client_st*) { return m_answer(state, data, m_calling); });
    return UdpClientStart(client, sock, peerAddress, Callback, this);
  }
  void Send(const std::string& data) const
  {
    EXPECT_EQ(sendto(peer, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof address),
              static_cast<ssize_t>(data.size()));
  }
  std::string Receive() const
  {
    std::string data(70000, '?');
    pollfd fd{peer, POLLIN, 0};
    const ssize_t got = poll(&fd, 1, 5000) == 1 ? recv(peer, data.data(), data.size(), 0) : -1;
    return got < 0 ? "nothing" : data.substr(0, static_cast<size_t>(got));
  }
  bool Reaches(const std::string& log)
  {
    return eventually([&] { return events->Log() == log; });
  }
  static int Callback(SERVICE_STATE_E state, const char* data, int len, udp_client_st* client, void* arg)
  {
    auto* self = static_cast<Service*>(arg);
    self->m_calling = client;
    return Events::Callback(state, data, len, nullptr, nullptr, self->events.get());
  }

  udp_client_st* client = UdpClientInit();
  std::unique_ptr<Events> events;
  int sock = -1;
  sockaddr_in address{};
  sockaddr_in peerAddress{};
  int peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);

private:
  Answer m_answer;
  udp_client_st* m_calling = nullptr;
};

} // namespace

TEST(UdpClient, JoinsQueuedSendsAndKeepsWhatIsNotConsumed)
{
  std::vector<std::string> seen;
  Service service(
      [&](SERVICE_STATE_E state, const std::string& data, udp_client_st* client)
      {
        if (state == SERVICE_STATE_START)
        {
          UdpClientSendData(client, "one", 3);
          UdpClientSendData(client, nullptr, 3);
          UdpClientSendData(client, "two", 3);
          EXPECT_EQ(UdpClientGetSendBufSize(client), 6);
        }
        if (state == SERVICE_STATE_RECV)
          seen.push_back(data);
        return state != SERVICE_STATE_RECV || seen.size() == 1 ? 0 : seen.size() == 2 ? 3 : 1000000;
      });
  ASSERT_EQ(service.Start(), 0);
  EXPECT_EQ(service.Receive(), "onetwo");
  EXPECT_TRUE(service.Reaches("SW"));
  service.Send("ab");
  service.Send("cd");
  service.Send(std::string(5000, 'e'));
  EXPECT_TRUE(service.Reaches("SWRRR"));
  const std::string longest(65507, 'x');
  UdpClientSendData(service.client, longest.data(), static_cast<int>(longest.size()));
  EXPECT_EQ(service.Receive(), longest);
  service.Send("f");
  EXPECT_TRUE(service.Reaches("SWRRRWR"));
  EXPECT_EQ(UdpClientStop(service.client), 0);
  EXPECT_EQ(service.events->Log(), "SWRRRWRC");
  EXPECT_EQ(service.client->sock, -1);
  EXPECT_EQ(fcntl(service.sock, F_GETFD), -1);
  EXPECT_EQ(seen, (std::vector<std::string>{"ab", "abcd", "d" + std::string(4096, 'e'), "f"}));
}

TEST(UdpClient, EndsWithALineForEveryReasonAndStartsAgain)
{
  int refused = -1;
  Service service(
      [&](SERVICE_STATE_E state, const std::string& data, udp_client_st*)
      {
        EXPECT_EQ(fcntl(service.sock, F_GETFD), FD_CLOEXEC); // open to the end
        return state == refused ? -1 : static_cast<int>(data.size());
      });
  constexpr int kNobody = -1;
  constexpr int kStopped = -2;
  constexpr int kDeaf = -3;
  const std::tuple<int, const char*, const char*, size_t> ends[] = {
      // who refuses or ends, the log, a datagram received, bytes to send
      {SERVICE_STATE_START, "SC", nullptr, 0},
      {SERVICE_STATE_RECV, "SRC", "x", 0},
      {SERVICE_STATE_SEND, "SWC", nullptr, 1},
      {kNobody, "SC", "", 0},
      {kNobody, "SC", nullptr, 65508}, // more than a datagram holds
      {kStopped, "SC", nullptr, 0},
      {kDeaf, "SWC", nullptr, 1}}; // nobody at the far end
  for (const auto& [reason, log, received, bytes] : ends)
  {
    refused = reason;
    CaptureStdout();
    ASSERT_EQ(service.Start(reason == kDeaf), 0); // on a record whose thread ended by itself, never joined
    const std::string remove = "udp remove conn, [" + std::to_string(service.sock) + "](";
    if (received != nullptr)
      service.Send(received);
    if (reason == kDeaf)
      close(service.peer);
    if (reason == kStopped)
      ThreadSetStatus(service.client->thread, 0);
    if (bytes > 0)
      UdpClientSendData(service.client, std::string(bytes, 'x').data(), static_cast<int>(bytes));
    EXPECT_TRUE(service.Reaches(log)) << log << ": " << service.events->Log();
    EXPECT_TRUE(eventually([&] { return relaxed_load(service.client->sock) == -1; }));
    EXPECT_EQ(ThreadGetStatus(service.client->thread), reason == kStopped ? 0 : 1);
    const std::string out = GetCapturedStdout();
    int end = 0; // of the line that names the end's place
    EXPECT_EQ(sscanf(out.c_str(),
                     "\xD0\xD0\xBA\xC5\xA3\xBA%*d\x20\xBA\xAF\xCA\xFD\xC3\xFB\xA3\xBAUdpClientProc%n", &end),
              0);
    EXPECT_EQ(end == 0, reason == kStopped) << out;
    EXPECT_EQ(out.find((end > 0 ? " \n" : "") + remove), static_cast<size_t>(end)) << out;
  }
  service.peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); // for the destructor
}

TEST(UdpClient, RefusesWhileItRunsAndMayBeFreedFromItsCallback)
{
  Service service(
      [&](SERVICE_STATE_E state, const std::string&, udp_client_st* client)
      {
        EXPECT_TRUE(state != SERVICE_STATE_RECV || UdpClientUninit(client) == 0);
        EXPECT_TRUE(state != SERVICE_STATE_CLOSE ||
                    UdpClientStart(client, 1, {}, Service::Callback, nullptr) == -1);
        return 0;
      });
  CaptureStderr();
  ASSERT_EQ(service.Start(), 0);
  EXPECT_EQ(UdpClientStart(service.client, 1, {}, Service::Callback, nullptr), -1);
  service.client = nullptr;
  EXPECT_TRUE(service.Reaches("S"));
  service.Send("go");
  EXPECT_TRUE(service.Reaches("SRC"));
  EXPECT_TRUE(eventually([&] { return fcntl(service.sock, F_GETFD) == -1; }));
  EXPECT_EQ(UdpClientStart(nullptr, 1, {}, nullptr, nullptr), -1);
  EXPECT_EQ(UdpClientStop(nullptr) + UdpClientUninit(nullptr), 0);
  EXPECT_EQ(UdpClientSendData(nullptr, "x", 1) + UdpClientGetSendBufSize(nullptr), 0);
  const std::string reports = GetCapturedStderr();
  EXPECT_EQ(occurrences(reports, "WARNING"), 2) << reports;
  EXPECT_EQ(occurrences(reports, "ERROR"), 4) << reports;
}
