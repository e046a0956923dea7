#pragma once

#include "support/peer_program.h"
#include "support/process.h"
#include "support/scratch_folder.h"

#include <memory>

#include <sys/stat.h>

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

/// Tests of one server after the other, each with a folder to serve from.
class ServedTest : public testing::TestWithParam<SetUpPeer>
{
protected:
  /// Starts the server, or skips the test.
  void Serve()
  {
    chmod(scratch.path.c_str(), 0755);
    setup = GetParam()(scratch.path, port);
    if (!setup.missing.empty())
      GTEST_SKIP() << setup.missing;
    Start();
  }
  void Start()
  {
    server = std::make_unique<ServerProcess>(setup.arguments);
    ASSERT_TRUE(ServerProcess::Listens(port));
  }

  ScratchFolder scratch;
  const int port = free_port();
  PeerSetup setup;
  std::unique_ptr<ServerProcess> server;
};
