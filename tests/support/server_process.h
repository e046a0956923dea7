#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
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
    {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid == 0)
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

  ~ServerProcess()
  {
    kill(m_pid, SIGTERM);
    bool ended = false;
    for (int i = 0; i < 2000 && !ended; ++i)
    {
      ended = waitpid(m_pid, nullptr, WNOHANG) == m_pid;
      usleep(1000);
    }
    if (!ended)
    {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, nullptr, 0);
    }
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
    const std::string path =
        "/proc/" + std::to_string(m_pid) + "/task/" + std::to_string(m_pid) + "/children";
    FILE* file = fopen(path.c_str(), "re");
    const bool busy = file != nullptr && fgetc(file) != EOF;
    if (file != nullptr)
    {
      fclose(file);
    }
    return busy;
  }

private:
  pid_t m_pid;
};
