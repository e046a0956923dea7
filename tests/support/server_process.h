#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

/// A server of the distribution, run for as long as this object, or this process, lives.
class ServerProcess
{
public:
  /// @param arguments  the program, by its path, and what it is given; it must stay in the foreground
  explicit ServerProcess(std::vector<std::string> arguments)
  {
    std::vector<char*> argv;
    for (std::string& argument : arguments)
      argv.push_back(argument.data());
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid == 0)
    {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const int nowhere = open("/dev/null", O_RDWR);
      for (int fd = 0; fd < 3; ++fd)
        dup2(nowhere, fd);
      if (getppid() == parent)
        execv(argv[0], argv.data());
      _exit(127);
    }
  }

  ~ServerProcess()
  {
    kill(m_pid, SIGTERM);
    for (int i = 0; i < 2000; ++i)
    {
      if (waitpid(m_pid, nullptr, WNOHANG) == m_pid)
        return;
      usleep(1000);
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }

  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  /// Waits up to ten seconds until the server takes connections on a loopback port.
  bool Listens(int port) const
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    bool connected = false;
    for (int i = 0; i < 1000 && !connected; ++i)
    {
      const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      connected = connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
      close(sock);
      usleep(10000);
    }
    return connected;
  }

  /// Whether processes of the server's own are serving somebody.
  bool Busy() const
  {
    const std::string pid = std::to_string(m_pid);
    return std::ifstream("/proc/" + pid + "/task/" + pid + "/children").peek() != EOF;
  }

private:
  pid_t m_pid;
};
