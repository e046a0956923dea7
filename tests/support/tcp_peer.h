#pragma once

#include <devcomm/tcp_service.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <random>
#include <string>

inline sockaddr_in loopback(int port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

/// A socket that listens on a free loopback port.
struct LoopbackListener
{
  LoopbackListener()
  {
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(sock, 16), 0);
    getsockname(sock, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
  }
  ~LoopbackListener()
  {
    close(sock);
  }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int port;
};

/// A port that nobody uses at the moment, and that the kernel gives to no connection meanwhile: one below those it
/// chooses from.
inline int free_port()
{
  static std::mt19937 random{std::random_device{}()};
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  do
  {
    address = loopback(static_cast<int>(10000 + random() % 20000));
    address.sin_addr.s_addr = INADDR_ANY;
  } while (bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0);
  close(sock);
  return ntohs(address.sin_port);
}

/// The far end of a connection: a plain blocking socket.
class Peer
{
public:
  explicit Peer(int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : m_sock(sock) {}
  ~Peer()
  {
    Close();
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// @param receiveBytes  how much it holds for a reader; 0 for as much as the system likes
  bool Connect(int port, int receiveBytes = 0)
  {
    if (receiveBytes > 0)
      setsockopt(m_sock, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
    const sockaddr_in address = loopback(port);
    return connect(m_sock, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }

  bool Send(const std::string& data)
  {
    return send(m_sock, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
  }

  /// Up to count bytes, fewer when the connection ends or nothing comes for five seconds.
  std::string Receive(size_t count)
  {
    std::string data;
    for (std::string part = "-"; data.size() < count && !part.empty(); data += part)
      part = ReceiveSome(count - data.size());
    return data;
  }

  /// What comes first, at most count bytes; nothing at the end, or when nothing comes for so long.
  std::string ReceiveSome(size_t count, int timeoutMs = 5000)
  {
    char part[65536];
    pollfd fd{m_sock, POLLIN, 0};
    const ssize_t got = poll(&fd, 1, timeoutMs) > 0 ? recv(m_sock, part, std::min(sizeof part, count), 0) : 0;
    return {part, static_cast<size_t>(std::max<ssize_t>(got, 0))};
  }

  /// A line with its end, or what there is of it.
  std::string ReceiveLine()
  {
    std::string line;
    for (std::string byte = "-"; !byte.empty() && byte != "\n"; line += byte)
      byte = Receive(1);
    return line;
  }

  /// Waits for the other side to close.
  bool AtEnd()
  {
    char byte;
    pollfd fd{m_sock, POLLIN, 0};
    return poll(&fd, 1, 5000) > 0 && recv(m_sock, &byte, 1, 0) <= 0;
  }

  /// Ends the connection by a reset.
  void Reset()
  {
    const linger now{1, 0};
    setsockopt(m_sock, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    Close();
  }

  void Close()
  {
    if (m_sock >= 0)
      close(m_sock);
    m_sock = -1;
  }

private:
  int m_sock;
};

/// A callback's argument: keeps one letter an event (S start, C close, R received, W written, I idle) and answers as
/// the test says. Used by the threads of any number of connections.
class Events
{
public:
  using Answer = std::function<int(SERVICE_STATE_E, const std::string&, tcp_server_st*, tcp_client_st*)>;

  explicit Events(Answer answer = nullptr) : m_answer(std::move(answer)) {}

  static int Callback(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* server,
                      tcp_client_st* client, void* arg)
  {
    auto* self = static_cast<Events*>(arg);
    const std::string bytes(len > 0 ? data : "", static_cast<size_t>(len));
    const int result = self->m_answer ? self->m_answer(state, bytes, server, client) : len;
    const std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_log += "SCRWI"[state];
    self->m_changed.notify_all();
    return result;
  }

  std::string Log()
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_log;
  }

  /// The log with runs of idle passes drawn together.
  std::string Steps()
  {
    std::string steps;
    for (const char event : Log())
      if (event != 'I' || steps.empty() || steps.back() != 'I')
        steps += event;
    return steps;
  }

  int Count(char event)
  {
    const std::string log = Log();
    return static_cast<int>(std::count(log.begin(), log.end(), event));
  }

  /// Waits until the event was reported count times; false after ten seconds.
  bool Wait(char event, int count = 1)
  {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10),
                              [&] { return std::count(m_log.begin(), m_log.end(), event) >= count; });
  }

private:
  Answer m_answer;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_log;
};

/// Echoes what comes and consumes it.
inline int echo(SERVICE_STATE_E state, const std::string& data, tcp_server_st* /*server*/,
                tcp_client_st* client)
{
  if (state == SERVICE_STATE_RECV)
    ClientSendData(client, data.data(), static_cast<int>(data.size()), 0);
  return static_cast<int>(data.size());
}

/// Both ends of a stream in the process itself.
struct SocketPair
{
  SocketPair()
  {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  }
  int ends[2] = {-1, -1};
};

/// A standalone connection and its peer.
struct Standalone
{
  Standalone() = default;
  explicit Standalone(Events& events, int timeoutMs = 5000)
  {
    EXPECT_EQ(Start(events, timeoutMs), 0);
  }
  ~Standalone()
  {
    ClientUninit(client);
  }
  int Start(Events& events, int timeoutMs = 5000)
  {
    return ClientStart(client, nullptr, pair.ends[0], timeoutMs, Events::Callback, &events);
  }

  SocketPair pair;
  tcp_client_st* client = ClientInit();
  Peer peer{pair.ends[1]};
};

/// A server listening on a free port, stopped and freed at the end.
struct Listening
{
  explicit Listening(Events& events, int maxConn = 100, int timeoutMs = 5000)
  {
    started = ServerStartListen(server, port, timeoutMs, maxConn, Events::Callback, &events);
  }
  ~Listening()
  {
    ServerStopListen(server);
    ServerUninit(server);
  }

  int port = free_port();
  tcp_server_st* server = ServerInit();
  int started;
};

/// Whether the condition comes true within ten seconds; then it is not asked again.
template <typename Condition>
bool eventually(Condition condition)
{
  for (int i = 0; i < 10000; ++i)
  {
    if (condition())
      return true;
    usleep(1000);
  }
  return false;
}
