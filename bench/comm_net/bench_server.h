#pragma once

#include "comm_server_client/bench_net.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <string>

/// A server of the distribution on a loopback port, run for as long as this object, or this process, lives.
class BenchServer
{
public:
  /// @param arguments  the program, by its path, and what it is given; it must stay in the foreground
  explicit BenchServer(std::vector<std::string> arguments)
  {
    std::vector<char*> argv;
    for (std::string& argument : arguments)
    {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
    {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const int nowhere = open("/dev/null", O_RDWR);
      for (int fd = 0; fd < 3; ++fd)
      {
        dup2(nowhere, fd);
      }
      if (getppid() == parent)
      {
        execv(argv[0], argv.data());
      }
      _exit(127);
    }
  }

  ~BenchServer()
  {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }

  BenchServer(const BenchServer&) = delete;
  BenchServer& operator=(const BenchServer&) = delete;

  /// Waits up to ten seconds until the server takes connections on the port.
  static bool Listens(int port)
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    bool there = false;
    for (int i = 0; i < 1000 && !there; ++i)
    {
      const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      there = connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
      close(sock);
      usleep(there ? 0 : 10000);
    }
    return there;
  }

private:
  pid_t pid_ = -1;
};
