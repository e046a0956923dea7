#pragma once

#include "support/tcp_peer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef DEVCOMM_EMULATOR
#define DEVCOMM_EMULATOR ""
#endif

constexpr int kPatienceMs = 40000; // nothing here takes so long, even emulated

/// A program with its three streams in pipes. It ends with the object, and with the test program.
class Process
{
public:
  explicit Process(const std::vector<std::string>& command)
  {
    std::signal(SIGPIPE, SIG_IGN);
    std::vector<char*> argv(command.size() + 1);
    std::transform(command.begin(), command.end(), argv.begin(),
                   [](const std::string& word) { return const_cast<char*>(word.c_str()); });
    int pipes[3][2];
    for (auto& ends : pipes)
      EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t parent = getpid();
    pid_ = fork();
    EXPECT_GE(pid_, 0);
    if (pid_ == 0)
      become(argv, pipes, parent);
    for (int i = 0; i < 3; ++i)
    {
      close(pipes[i][i == 0 ? 0 : 1]);
      ends_[i] = pipes[i][i == 0 ? 1 : 0];
    }
  }

  ~Process()
  {
    if (pid_ > 0)
    {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    for (int end : ends_)
      if (end >= 0)
        close(end);
  }

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const
  {
    return pid_;
  }

  int in() const
  {
    return ends_[0];
  }

  void close_in()
  {
    close(ends_[0]);
    ends_[0] = -1;
  }

  void signal(int number) const
  {
    kill(pid_, number);
  }

  /// Reads standard output (1) or error (2) until it holds text, to its end, or until patience is over.
  std::string read_until(int stream, const char* text = nullptr) const
  {
    std::string all;
    char block[512];
    pollfd waiting = {ends_[stream], POLLIN, 0};
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while ((text == nullptr || all.find(text) == std::string::npos) &&
           std::chrono::steady_clock::now() < end && poll(&waiting, 1, kPatienceMs) > 0)
    {
      const ssize_t got = read(ends_[stream], block, text == nullptr ? sizeof block : 1);
      if (got <= 0)
        break;
      all.append(block, static_cast<size_t>(got));
    }
    return all;
  }

  /// Exit status; -1 when a signal ended it.
  int wait()
  {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  [[noreturn]] static void become(const std::vector<char*>& argv, const int (&pipes)[3][2], pid_t parent)
  {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
      _exit(127);
    std::signal(SIGPIPE, SIG_DFL);
    for (int i = 0; i < 3; ++i)
      dup2(pipes[i][i == 0 ? 0 : 1], i);
    execvp(argv[0], argv.data());
    _exit(127);
  }

  pid_t pid_ = -1;
  int ends_[3] = {-1, -1, -1};
};

/// The command line that starts a program of this build, where need be under the emulator.
inline std::vector<std::string> command(const char* program, const std::vector<std::string>& arguments,
                                        const std::vector<std::string>& more = {})
{
  std::istringstream emulator(DEVCOMM_EMULATOR);
  std::vector<std::string> words;
  for (std::string word; emulator >> word;)
    words.push_back(word);
  words.push_back(program);
  words.insert(words.end(), arguments.begin(), arguments.end());
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

#ifdef DEVCOMM_RECORDER
/// A recorder on ports of its own, which it has opened.
class RecorderProcess : public Process
{
public:
  RecorderProcess(int port, const std::vector<std::string>& arguments, int gpsPort = free_port())
      : Process(command(DEVCOMM_RECORDER, arguments,
                        {"--port=" + std::to_string(port), "--gps-port=" + std::to_string(gpsPort)})),
        socket_("/tmp/recorder-" + std::to_string(port) + ".sock")
  {
    read_until(1, " on port ");
  }

  ~RecorderProcess()
  {
    unlink(socket_.c_str()); // one that is killed leaves it behind
  }

private:
  std::string socket_;
};
#endif
