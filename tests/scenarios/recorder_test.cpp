// The recorder as a whole: its program, fed through pipes and watched over TCP.

#ifdef DEVCOMM_RECORDER

#include "annexb_splitter.h"
#include "support/process.h"
#include "support/tcp_peer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

namespace
{

// A connected viewer that cuts what it receives into frames.
class Viewer : public Peer
{
public:
  explicit Viewer(int port, int receiveBytes = 0)
  {
    EXPECT_TRUE(Connect(port, receiveBytes));
  }

  // Receives until count frames are complete, or to the end of the stream.
  void receive(size_t count)
  {
    for (AccessUnit unit = {}; frames.size() < count && !ended;)
    {
      bool isWhole = splitter_.next(unit);
      if (!isWhole)
      {
        const std::string piece = ReceiveSome(16384, kPatienceMs);
        splitter_.push(reinterpret_cast<const uint8_t*>(piece.data()), piece.size());
        ended = piece.empty();
        EXPECT_TRUE(!ended || AtEnd());
        isWhole = ended && splitter_.finish(unit);
      }
      if (isWhole)
        frames.emplace_back(unit.data, unit.data + unit.size);
    }
  }

  std::vector<std::string> frames;
  bool ended = false;

private:
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

bool feed(const Process& process, int number)
{
  const std::string frame = test_frame(number);
  return write(process.in(), frame.data(), frame.size()) == static_cast<ssize_t>(frame.size());
}

} // namespace

TEST(RecorderTest, TheClipIsServedFromAKeyFrameUntilAStop)
{
  for (int stop : {SIGTERM, SIGINT, 0})
  {
    const int port = free_port();
    RecorderProcess process(port, {"--seconds", stop == 0 ? "2" : "1000"});
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
  Viewer quick(port);
  Viewer stopped(port, 4096);

  for (int number = 0; number < kFrames; ++number)
  {
    ASSERT_TRUE(feed(process, number));
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
  Viewer witness(port);
  const auto feed_all = [&](int from, int to)
  {
    for (int number = from; number < to; ++number)
      ASSERT_TRUE(feed(process, number));
    witness.receive(static_cast<size_t>(to) - 2);
  };
  for (int number = 0; number < kPast; number += 10)
    feed_all(number, number + 10);

  const std::pair<const char*, int> firsts[] = {
      {"LAST 1\n", 100}, {"LAST 3\r\n", 50}, {"LAST 99\n", 0}, {"LAST -1\n", 100}};
  for (const auto& [line, first] : firsts)
  {
    Viewer viewer(port);
    viewer.Send(line);
    viewer.receive(2);
    ASSERT_EQ(viewer.frames.size(), 2U);
    EXPECT_EQ(number_of(viewer.frames[0]), first) << line;
  }
  Viewer viewer(port);
  viewer.Send("LAS");
  viewer.Send("T 2\n");
  viewer.receive(30);
  feed_all(kPast, kFrames);

  // The past is held for a few viewers only: those who leave it there do not fill the memory.
  std::list<Viewer> lazy;
  for (int i = 0; i < 4; ++i)
  {
    lazy.emplace_back(port, 4096);
    lazy.back().Send("LAST 15\n");
    lazy.back().receive(1);
    EXPECT_EQ(number_of(lazy.back().frames.at(0)), 0);
  }
  Viewer fifth(port);
  fifth.Send("LAST 15\n");
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
  const std::string url = "tcp://127.0.0.1:" + std::to_string(port);
  Process decoder(
      {"ffmpeg", "-nostdin", "-v", "error", "-f", "h264", "-i", url, "-t", "2", "-f", "null", "-"});
  EXPECT_EQ(decoder.read_until(2), "");
  EXPECT_EQ(decoder.wait(), 0);
}

#endif
