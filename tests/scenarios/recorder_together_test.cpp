// The recorder, recorder-tap and recorderctl at work together.

#ifdef DEVCOMM_RECORDER

#include "annexb_splitter.h"
#include "support/process.h"
#include "support/recorder_tools.h"
#include "support/tcp_peer.h"

#include <devcomm/socket.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <sys/file.h>
#include <sys/shm.h>

namespace
{

// A ring's key that nobody else uses; what stands for it on this machine goes with the object.
struct Ring
{
  ~Ring()
  {
    shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    unlink(lock.c_str());
  }
  int key = free_port();
  std::string lock = "/tmp/ShmBuf_lock_" + std::to_string(key);
};

// A follower of the ring that writes to a file of its own.
struct Tap
{
  Tap(const Ring& ring, int reader)
      : process(command(DEVCOMM_RECORDER_TAP,
                        {"--ring", std::to_string(ring.key), "--reader", std::to_string(reader), path}))
  {
  }

  // Ends it. @return its last words
  std::string end()
  {
    process.signal(SIGTERM);
    std::string output = process.read_until(1);
    EXPECT_EQ(process.wait(), 0) << output;
    return output;
  }

  const ScratchFolder folder{};
  const std::string path = folder.path + "/stream";
  Process process;
};

} // namespace

TEST(RecorderTogetherTest, TheStreamIsTappedWhileTheRecorderIsAskedMarkedHeardAndStopped)
{
  const Ring ring;
  const int port = free_port();
  sockaddr_in announced = {};
  const int listener = udp_unicast_init(0, &announced);
  RecorderProcess process(
      port, {"--ring", std::to_string(ring.key), "--announce", std::to_string(ntohs(announced.sin_port))});
  Tap first(ring, 1);
  Tap second(ring, 2);
  ASSERT_TRUE(eventually([&] { return contents(second.path).size() > 20000; }));
  EXPECT_NE(second.end().find(", gaps 0\n"), std::string::npos);

  const Answer status = recorderctl(port, {"status"});
  EXPECT_EQ(status.status, 0);
  EXPECT_EQ(status.output.find("frames "), 0U) << status.output;
  EXPECT_NE(status.output.find("viewers 0, bytes 0, dropped 0, fix "), std::string::npos) << status.output;
  EXPECT_EQ(recorderctl(port, {"mark", "a white", "van"}).output, "marked\n");
  EXPECT_NE(process.read_until(1, "mark: a white van (36.06").find("mark: a white van (36.06"),
            std::string::npos);

  char text[1024];
  ASSERT_TRUE(eventually([&] { return select_read(listener, 0) == 1; }));
  const int length = udp_read(listener, text, sizeof text, nullptr);
  EXPECT_EQ(std::string(text, static_cast<size_t>(std::max(length, 0))).find("frames "), 0U);
  close(listener);

  EXPECT_EQ(recorderctl(port, {"stop"}).output, "stopping\n");
  process.read_until(1);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(recorderctl(port, {"status"}).status, 1); // nobody is there any more

  const std::string words = first.end();
  const std::string stream = contents(first.path);
  AnnexBSplitter splitter(stream.size());
  splitter.push(reinterpret_cast<const uint8_t*>(stream.data()), stream.size());
  int frames = 0;
  for (AccessUnit unit = {}; splitter.next(unit) || splitter.finish(unit); ++frames)
    EXPECT_TRUE(frames > 0 || unit.keyFrame);
  EXPECT_EQ(words, "frames " + std::to_string(frames) + ", gaps 0\n");
  if (system("command -v ffmpeg >/dev/null") == 0)
  {
    const Answer decoder =
        run({"ffmpeg", "-nostdin", "-v", "error", "-f", "h264", "-i", first.path, "-f", "null", "-"});
    EXPECT_EQ(decoder.errors, "");
    EXPECT_EQ(decoder.status, 0);
  }
}

TEST(RecorderTogetherTest, AThreadThatStallsIsNamedAndDelaysNoOther)
{
  const Ring ring;
  const int port = free_port();
  RecorderProcess process(port, {"--ring", std::to_string(ring.key)});
  process.read_until(1, "dropped 0");
  // Whoever holds the ring's lock keeps its writer waiting.
  const int lock = open(ring.lock.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  Peer viewer;
  ASSERT_TRUE(viewer.Connect(port));
  EXPECT_EQ(process.read_until(2, "stalled"), "recorder: thread 'ring writer' has stalled");
  EXPECT_EQ(viewer.Receive(50000).size(), 50000U);
  close(lock);
  EXPECT_EQ(recorderctl(port, {"stop"}).output, "stopping\n");
  process.read_until(1);
  EXPECT_EQ(process.wait(), 0);
}

TEST(RecorderTogetherTest, WhatTheProgramsCannotDoIsSaidInOneLine)
{
  const std::string port = "--port=" + std::to_string(free_port());
  const std::string gpsPort = std::to_string(free_port());
  const std::tuple<const char*, std::vector<std::string>, int> cases[] = {
      {DEVCOMM_RECORDER, {"--port", "0"}, 2},
      {DEVCOMM_RECORDER, {"--port=65536"}, 2},
      {DEVCOMM_RECORDER, {"--port", "80x"}, 2},
      {DEVCOMM_RECORDER, {"--port"}, 2},
      {DEVCOMM_RECORDER, {"--seconds", "-1"}, 2},
      {DEVCOMM_RECORDER, {"--input="}, 2},
      {DEVCOMM_RECORDER, {"--what"}, 2},
      {DEVCOMM_RECORDER, {"--gps="}, 2},
      {DEVCOMM_RECORDER, {"--gps-rate", "11"}, 2},
      {DEVCOMM_RECORDER, {port, "--gps", "/nonexistent/gps"}, 1},
      {DEVCOMM_RECORDER, {port, "--input", "/nonexistent/clip"}, 1},
      {DEVCOMM_RECORDER, {port, "--input", "/"}, 1},
      {DEVCOMM_RECORDER, {port, "--gps-port", gpsPort, "--input", "/dev/null"}, 1},
      {DEVCOMM_RECORDERCTL, {port, "status"}, 1}, // nobody is there
      {DEVCOMM_RECORDERCTL, {port, "mark"}, 2},
      {DEVCOMM_RECORDERCTL, {port, "stop", "now"}, 2},
      {DEVCOMM_RECORDERCTL, {"--port=0"}, 2},
      {DEVCOMM_RECORDER_TAP, {"--ring=1"}, 2},
      {DEVCOMM_RECORDER_TAP, {"file"}, 2},
      {DEVCOMM_RECORDER_TAP, {"--ring=1", "--reader=11", "file"}, 2}};
  for (const auto& [program, arguments, status] : cases)
  {
    const Answer answer = run(command(program, arguments));
    EXPECT_EQ(answer.status, status) << arguments.back();
    EXPECT_EQ(std::count(answer.errors.begin(), answer.errors.end(), '\n'), 1) << answer.errors;
    EXPECT_EQ(answer.errors.find(strrchr(program, '/') + 1 + std::string(": ")), 0U) << answer.errors;
  }
  const Answer help = run(command(DEVCOMM_RECORDER, {"--help"}));
  EXPECT_NE(help.output.find("--seconds N"), std::string::npos);
  EXPECT_EQ(help.status, 0);
}

#endif
