// The recorder as a whole: its program, fed through pipes and watched over TCP.

#ifdef DEVCOMM_RECORDER

#include "annexb_splitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef DEVCOMM_EMULATOR
#define DEVCOMM_EMULATOR ""
#endif

namespace
{

constexpr int kPatienceMs = 20000; // nothing here takes so long, even emulated

// A program with its three streams in pipes.
class Process
{
public:
  explicit Process(const std::vector<std::string>& command)
  {
    int pipes[3][2];
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (int i = 0; i < 3; ++i)
    {
      EXPECT_EQ(pipe2(pipes[i], O_CLOEXEC), 0);
      posix_spawn_file_actions_adddup2(&files, pipes[i][i == 0 ? 0 : 1], i);
    }
    std::vector<char*> argv;
    for (const std::string& word : command)
      argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawnp(&pid_, argv[0], &files, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&files);
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

  // Reads standard output (1) or error (2) until it holds text, or to its end.
  std::string read_until(int stream, const char* text = nullptr) const
  {
    std::string all;
    char block[512];
    pollfd waiting = {ends_[stream], POLLIN, 0};
    while ((text == nullptr || all.find(text) == std::string::npos) && poll(&waiting, 1, kPatienceMs) > 0)
    {
      const ssize_t got = read(ends_[stream], block, text == nullptr ? sizeof block : 1);
      if (got <= 0)
        break;
      all.append(block, static_cast<size_t>(got));
    }
    return all;
  }

  // Exit status; -1 when a signal ended it.
  int wait()
  {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  pid_t pid_ = -1;
  int ends_[3] = {-1, -1, -1};
};

std::vector<std::string> recorder(const std::vector<std::string>& arguments)
{
  std::istringstream emulator(DEVCOMM_EMULATOR);
  std::vector<std::string> command;
  for (std::string word; emulator >> word;)
    command.push_back(word);
  command.push_back(DEVCOMM_RECORDER);
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

sockaddr_in loopback(int port)
{
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int free_port()
{
  const int sock = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(sock);
  return ntohs(address.sin_port);
}

// A connected viewer that cuts what it receives into frames.
class Viewer
{
public:
  explicit Viewer(int port, int receiveBytes = 0) : sock_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
  {
    if (receiveBytes > 0)
      setsockopt(sock_, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
    const sockaddr_in address = loopback(port);
    EXPECT_EQ(connect(sock_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }

  ~Viewer()
  {
    close(sock_);
  }

  // Receives until count frames are complete, or to the end of the stream.
  void receive(size_t count)
  {
    AccessUnit unit = {};
    while (frames.size() < count)
    {
      if (splitter_.next(unit))
        frames.emplace_back(unit.data, unit.data + unit.size);
      else if (!receive_piece())
      {
        ended = true;
        if (splitter_.finish(unit))
          frames.emplace_back(unit.data, unit.data + unit.size);
        return;
      }
    }
  }

  std::vector<std::string> frames;
  bool ended = false;

private:
  bool receive_piece()
  {
    uint8_t piece[16384];
    pollfd waiting = {sock_, POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, kPatienceMs), 1);
    const ssize_t got = recv(sock_, piece, sizeof piece, MSG_DONTWAIT);
    if (got > 0)
      splitter_.push(piece, static_cast<size_t>(got));
    return got > 0;
  }

  int sock_;
  AnnexBSplitter splitter_{1 << 20};
};

constexpr size_t kAll = SIZE_MAX;
constexpr int kKeyEvery = 25;

// Frame of a stream with a key frame each second, of a size that soon fills the buffers on the way.
std::string test_frame(int number)
{
  const std::string code("\0\0\0\1", 4);
  const bool key = number % kKeyEvery == 0;
  const std::string sets = key ? code + "\x67sps" + code + "\x68pps" : "";
  return sets + code + (key ? "\x65" : "\x41") + "\x88" + std::to_string(number) + std::string(40000, '.');
}

// Number of a frame that must be whole; -1 when it is not.
int number_of(const std::string& frame)
{
  const size_t at = frame.find('\x88');
  const int number = at == std::string::npos ? -1 : atoi(frame.c_str() + at + 1);
  return frame == test_frame(number) ? number : -1;
}

bool write_all(int fd, const std::string& bytes)
{
  size_t done = 0;
  while (done < bytes.size())
  {
    const ssize_t put = write(fd, bytes.data() + done, bytes.size() - done);
    if (put <= 0)
      return false;
    done += static_cast<size_t>(put);
  }
  return true;
}

class RecorderTest : public testing::Test
{
protected:
  RecorderTest()
  {
    std::signal(SIGPIPE, SIG_IGN);
  }
};

} // namespace

TEST_F(RecorderTest, WhatItCannotDoIsSaidInOneLine)
{
  struct Case
  {
    std::vector<std::string> arguments;
    int status;
  };
  const std::string port = std::to_string(free_port());
  const std::vector<Case> cases = {{{"--port", "0"}, 2},
                                   {{"--port=65536"}, 2},
                                   {{"--port", "80x"}, 2},
                                   {{"--port"}, 2},
                                   {{"--seconds", "-1"}, 2},
                                   {{"--input="}, 2},
                                   {{"--what"}, 2},
                                   {{"--port", port, "--input", "/nonexistent/clip"}, 1},
                                   {{"--port", port, "--input", "/"}, 1},
                                   {{"--port", port, "--input", "/dev/null"}, 1}};
  for (const Case& one : cases)
  {
    Process process(recorder(one.arguments));
    const std::string errors = process.read_until(2);
    EXPECT_EQ(process.wait(), one.status) << one.arguments.back();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_EQ(errors.find("recorder: "), 0U) << errors;
  }
  Process help(recorder({"--help"}));
  EXPECT_NE(help.read_until(1).find("--seconds N"), std::string::npos);
  EXPECT_EQ(help.wait(), 0);
}

TEST_F(RecorderTest, TheClipIsServedFromAKeyFrameUntilAStop)
{
  for (int stop : {SIGTERM, SIGINT, 0})
  {
    const int port = free_port();
    Process process(recorder({"--port", std::to_string(port), "--seconds", stop == 0 ? "2" : "1000"}));
    process.read_until(1, " on port ");
    Viewer first(port);
    Viewer second(port);
    for (Viewer* viewer : {&first, &second})
    {
      viewer->receive(12);
      ASSERT_EQ(viewer->frames.size(), 12U);
      // Delimiter, then the parameter sets.
      EXPECT_EQ(viewer->frames[0].compare(0, 6, std::string("\0\0\0\1\x09\x10", 6)), 0);
      EXPECT_NE(viewer->frames[0].find(std::string("\0\0\0\1\x67", 5)), std::string::npos);
    }
    EXPECT_TRUE(std::equal(first.frames.begin(), first.frames.begin() + 12, second.frames.begin()));

    if (stop != 0)
      process.signal(stop);
    first.receive(kAll);
    EXPECT_TRUE(first.ended);
    const std::string output = process.read_until(1);
    EXPECT_EQ(process.wait(), 0) << output;
    EXPECT_NE(output.find("viewers 0, bytes "), std::string::npos) << output;
    EXPECT_NE(output.find(", dropped 0\n"), std::string::npos) << output;
  }
}

TEST_F(RecorderTest, AViewerThatStopsReadingLosesFramesAloneAndGoesOnAtAKeyFrame)
{
  constexpr int kFrames = 400;
  constexpr int kAtOnce = 5;
  const int port = free_port();
  Process process(recorder({"--port", std::to_string(port), "--input", "-"}));
  process.read_until(1, " on port ");
  Viewer quick(port);
  Viewer stopped(port, 4096);

  for (int number = 0; number < kFrames; ++number)
  {
    ASSERT_TRUE(write_all(process.in(), test_frame(number)));
    // The newest frame is complete for the recorder, and then for the viewer, when the next one begins.
    if (number % kAtOnce == 0 && number >= 2)
      quick.receive(static_cast<size_t>(number - 1));
    if (number == 60)
    {
      Viewer late(port);
      late.receive(3);
      ASSERT_EQ(late.frames.size(), 3U);
      EXPECT_EQ(number_of(late.frames[0]), 50);
    }
    // Its next frame has left the recorder's buffer by now; at the end it is late, but still there.
    while (number == 300 && !stopped.ended &&
           (stopped.frames.empty() || number_of(stopped.frames.back()) < 277))
      stopped.receive(stopped.frames.size() + 1);
  }
  process.close_in();
  quick.receive(kAll);
  stopped.receive(kAll);
  const std::string output = process.read_until(1);
  EXPECT_EQ(process.wait(), 0) << process.read_until(2);

  ASSERT_EQ(quick.frames.size(), static_cast<size_t>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    EXPECT_EQ(number_of(quick.frames[static_cast<size_t>(i)]), i);

  int expected = 0;
  int lost = 0;
  std::vector<int> resumed;
  for (const std::string& frame : stopped.frames)
  {
    const int number = number_of(frame);
    if (number != expected)
    {
      resumed.push_back(number);
      lost += number - expected;
    }
    expected = number + 1;
  }
  EXPECT_EQ(expected, kFrames);
  EXPECT_EQ(resumed, (std::vector<int>{275, 375}));
  EXPECT_NE(output.find("dropped " + std::to_string(lost) + "\n", output.rfind("frames 400,")),
            std::string::npos)
      << lost << '\n'
      << output;
}

TEST_F(RecorderTest, AnotherProgramDecodesTheStreamWithoutAnError)
{
  if (*DEVCOMM_EMULATOR != '\0')
    GTEST_SKIP() << "the recorder runs under emulation";
  if (system("command -v ffmpeg >/dev/null") != 0)
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string port = std::to_string(free_port());
  Process process(recorder({"--port", port, "--seconds", "60"}));
  process.read_until(1, " on port ");
  const std::string url = "tcp://127.0.0.1:" + port;
  Process decoder(
      {"ffmpeg", "-nostdin", "-v", "error", "-f", "h264", "-i", url, "-t", "2", "-f", "null", "-"});
  EXPECT_EQ(decoder.read_until(2), "");
  EXPECT_EQ(decoder.wait(), 0);
}

#endif
