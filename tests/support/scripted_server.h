#pragma once

#include "support/tcp_peer.h"

#include <netinet/tcp.h>

#include <thread>

/// A connection as a script sees it.
class ScriptedPeer : public Peer
{
public:
  explicit ScriptedPeer(int sock) : Peer(sock)
  {
    const int on = 1;
    setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }

  /// One line without its CR LF; empty at the end of the connection, or for an empty line.
  std::string Line()
  {
    std::string line;
    for (std::string byte = Receive(1); !byte.empty() && byte != "\n"; byte = Receive(1))
      line += byte;
    return line.substr(0, line.find('\r'));
  }

  bool SendByteByByte(const std::string& text)
  {
    return std::all_of(text.begin(), text.end(), [this](char byte) { return Send(std::string(1, byte)); });
  }
};

/// A server on a free loopback port. It plays its script on a thread of its own to one connection after the other,
/// and closes each at the end of the script.
class ScriptedServer
{
public:
  using Script = std::function<void(ScriptedPeer&)>;

  explicit ScriptedServer(Script script) : m_script(std::move(script))
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof address;
    bind(m_sock, reinterpret_cast<sockaddr*>(&address), len);
    listen(m_sock, 16);
    getsockname(m_sock, reinterpret_cast<sockaddr*>(&address), &len);
    port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Serve(); });
  }

  /// Waits for the script that is playing; its connection ends when the test closes its own end.
  ~ScriptedServer()
  {
    shutdown(m_sock, SHUT_RDWR);
    m_thread.join();
    close(m_sock);
  }

  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int port;

private:
  void Serve()
  {
    for (int sock; (sock = accept4(m_sock, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
    {
      ScriptedPeer peer(sock);
      m_script(peer);
    }
  }

  Script m_script;
  int m_sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::thread m_thread;
};
