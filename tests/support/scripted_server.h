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
    const std::string line = ReceiveLine();
    return line.substr(0, line.find_first_of("\r\n"));
  }
};

/// A server on a free loopback port. It plays its script on a thread of its own to one connection after the other,
/// and closes each at the end of the script.
class ScriptedServer
{
public:
  using Script = std::function<void(ScriptedPeer&)>;

  explicit ScriptedServer(Script script) : m_script(std::move(script)) {}

  /// Waits for the script that is playing; its connection ends when the test closes its own end.
  ~ScriptedServer()
  {
    shutdown(m_listener.sock, SHUT_RDWR);
    m_thread.join();
  }

private:
  void Serve()
  {
    for (int sock; (sock = accept4(m_listener.sock, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
    {
      ScriptedPeer peer(sock);
      m_script(peer);
    }
  }

  Script m_script;
  LoopbackListener m_listener;

public:
  const int port = m_listener.port;

private:
  std::thread m_thread{[this]
                       {
                         Serve();
                       }};
};
