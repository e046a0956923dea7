// The recorder as a whole: its program, fed through pipes and watched over TCP.

#ifdef DEVCOMM_RECORDER

#include "annexb_splitter.h"
#include "support/process.h"
#include "support/tcp_peer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <list>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

sockaddr_in loopback(int port)
{
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
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

  void ask(const std::string& line) const
  {
    EXPECT_EQ(send(sock_, line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
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

} // namespace

TEST(RecorderTest, WhatItCannotDoIsSaidInOneLine)
{
  struct Case
  {
    std::vector<std::string> arguments;
    int status;
  };
  const std::string port = std::to_string(free_port());
  const std::string gpsPort = std::to_string(free_port());
  const std::vector<Case> cases = {{{"--port", "0"}, 2},
                                   {{"--port=65536"}, 2},
                                   {{"--port", "80x"}, 2},
                                   {{"--port"}, 2},
                                   {{"--seconds", "-1"}, 2},
                                   {{"--input="}, 2},
                                   {{"--what"}, 2},
                                   {{"--gps="}, 2},
                                   {{"--gps-rate", "11"}, 2},
                                   {{"--port", port, "--gps", "/nonexistent/gps"}, 1},
                                   {{"--port", port, "--input", "/nonexistent/clip"}, 1},
                                   {{"--port", port, "--input", "/"}, 1},
                                   {{"--port", port, "--gps-port", gpsPort, "--input", "/dev/null"}, 1}};
  for (const Case& one : cases)
  {
    Process process(command(DEVCOMM_RECORDER, one.arguments));
    const std::string errors = process.read_until(2);
    EXPECT_EQ(process.wait(), one.status) << one.arguments.back();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_EQ(errors.find("recorder: "), 0U) << errors;
  }
  Process help(command(DEVCOMM_RECORDER, {"--help"}));
  EXPECT_NE(help.read_until(1).find("--seconds N"), std::string::npos);
  EXPECT_EQ(help.wait(), 0);
}

TEST(RecorderTest, TheClipIsServedFromAKeyFrameUntilAStop)
{
  for (int stop : {SIGTERM, SIGINT, 0})
  {
    const int port = free_port();
    RecorderProcess process(port, {"--seconds", stop == 0 ? "2" : "1000"});
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
    EXPECT_NE(output.find(", dropped 0,"), std::string::npos) << output;
  }
}

TEST(RecorderTest, AViewerThatStopsReadingLosesFramesAloneAndGoesOnAtAKeyFrame)
{
  constexpr int kFrames = 400;
  constexpr int kAtOnce = 5;
  const int port = free_port();
  RecorderProcess process(port, {"--input", "-"});
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
  EXPECT_NE(output.find("dropped " + std::to_string(lost) + ",", output.rfind("frames 400,")),
            std::string::npos)
      << lost << '\n'
      << output;
}

TEST(RecorderTest, AViewerThatAsksGetsThePastFirstAndThenGoesOnLive)
{
  constexpr int kPast = 110;
  constexpr int kFrames = 130;
  const int port = free_port();
  RecorderProcess process(port, {"--input", "-"});
  process.read_until(1, " on port ");
  Viewer witness(port);
  const auto feed = [&](int from, int to)
  {
    for (int number = from; number < to; ++number)
      ASSERT_TRUE(write_all(process.in(), test_frame(number)));
    witness.receive(static_cast<size_t>(to) - 2);
  };
  for (int number = 0; number < kPast; number += 10)
    feed(number, number + 10);

  struct Case
  {
    const char* line;
    int first;
  };
  for (const Case& one :
       {Case{"LAST 1\n", 100}, Case{"LAST 3\r\n", 50}, Case{"LAST 99\n", 0}, Case{"LAST -1\n", 100}})
  {
    Viewer viewer(port);
    viewer.ask(one.line);
    viewer.receive(2);
    ASSERT_EQ(viewer.frames.size(), 2U);
    EXPECT_EQ(number_of(viewer.frames[0]), one.first) << one.line;
  }
  Viewer viewer(port);
  viewer.ask("LAS");
  viewer.ask("T 2\n");
  viewer.receive(30);
  feed(kPast, kFrames);

  // The past is held for a few viewers only: those who leave it there do not fill the memory.
  std::list<Viewer> lazy;
  for (int i = 0; i < 4; ++i)
  {
    lazy.emplace_back(port, 4096);
    lazy.back().ask("LAST 15\n");
    lazy.back().receive(1);
    EXPECT_EQ(number_of(lazy.back().frames.at(0)), 0);
  }
  Viewer fifth(port);
  fifth.ask("LAST 15\n");
  fifth.receive(1);
  EXPECT_EQ(number_of(fifth.frames.at(0)), 125);
  lazy.clear();
  process.close_in();
  viewer.receive(kAll);
  EXPECT_EQ(viewer.frames.size(), static_cast<size_t>(kFrames - 75));
  for (size_t i = 0; i < viewer.frames.size(); ++i)
    EXPECT_EQ(number_of(viewer.frames[i]), 75 + static_cast<int>(i));
}

TEST(RecorderTest, AnotherProgramDecodesTheStreamWithoutAnError)
{
  if (*DEVCOMM_EMULATOR != '\0')
    GTEST_SKIP() << "the recorder runs under emulation";
  if (system("command -v ffmpeg >/dev/null") != 0)
    GTEST_SKIP() << "ffmpeg is not installed";
  const int port = free_port();
  RecorderProcess process(port, {"--seconds", "60"});
  process.read_until(1, " on port ");
  const std::string url = "tcp://127.0.0.1:" + std::to_string(port);
  Process decoder(
      {"ffmpeg", "-nostdin", "-v", "error", "-f", "h264", "-i", url, "-t", "2", "-f", "null", "-"});
  EXPECT_EQ(decoder.read_until(2), "");
  EXPECT_EQ(decoder.wait(), 0);
}

#endif
