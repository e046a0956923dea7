#pragma once

#include "support/process.h"

#include <fstream>

/// A server of the distribution, run for as long as this object, or this process, lives. It must stay in the
/// foreground, and print little.
class ServerProcess : public Process
{
public:
  using Process::Process;

  /// Lets it end the processes of its own.
  ~ServerProcess()
  {
    signal(SIGTERM);
    siginfo_t end{};
    eventually(
        [&]
        {
          return waitid(P_PID, static_cast<id_t>(pid()), &end, WEXITED | WNOHANG | WNOWAIT) != 0 ||
                 end.si_pid != 0;
        });
  }

  /// Waits until the server takes connections on a loopback port.
  static bool Listens(int port)
  {
    return eventually([port] { return Peer().Connect(port); });
  }

  /// Whether processes of the server's own are serving somebody.
  bool Busy() const
  {
    const std::string name = std::to_string(pid());
    return std::ifstream("/proc/" + name + "/task/" + name + "/children").peek() != EOF;
  }
};
