#include <devcomm/unix_domain.h>

#include "comm_server_client/unix_domain_address.h"
#include "internal/relaxed.h"

#include <devcomm/watchdog.h>

#include "support/fault_runs.h"
#include "support/measure.h"
#include "support/signal_storm.h"
#include "support/tcp_peer.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <thread>
#include <vector>

namespace
{

std::string path_in_temp(const std::string& name)
{
  return testing::TempDir() + "devcomm_" + std::to_string(getpid()) + "_" + name;
}

bool own_address_is_left()
{
  return access(("/tmp/unixdomain_" + std::to_string(getpid())).c_str(), F_OK) == 0;
}

/// A plain datagram socket that binds to, or sends to, paths.
struct RawSocket
{
  ~RawSocket()
  {
    close(sock);
  }
  void Bind(const std::string& path)
  {
    sockaddr_un address = unix_domain_address(path.c_str());
    unlink(address.sun_path);
    EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << path;
  }
  bool Send(const std::string& path)
  {
    sockaddr_un address = unix_domain_address(path.c_str());
    return sendto(sock, "x", 1, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&address), sizeof address) == 1;
  }
  int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// Answers from inside with the length received and the bytes; sees that nothing old lies behind them.
int answer(int sock, sockaddr_un* from, unsigned* fromLen, char* data, int len, void* arg)
{
  const std::string got(data, static_cast<size_t>(len));
  const std::string zeros(4352 - got.size() + 1, '\0');
  EXPECT_EQ(std::string(data + len, zeros.size()), zeros);
  std::string text = std::to_string(len) + ":" + got;
  const int sent = SendUnixDomainDataToAddr(sock, from, fromLen, text.data(), int(text.size()));
  EXPECT_TRUE(*fromLen > 0 || sent == -1);
  *fromLen = 0; // what a callback leaves here must not reach the next receive
  if (arg != nullptr)
    ++*static_cast<std::atomic<int>*>(arg);
  return 0;
}

/// A listener that is bound when the constructor returns.
struct Listener
{
  explicit Listener(std::string path, void* arg = nullptr)
      : record(static_cast<unix_domain_listen_st*>(StartUnixDomainListen(path.data(), answer, arg)))
  {
    EXPECT_TRUE(eventually([&] { return relaxed_load(record->sock) > 0; }));
  }
  ~Listener()
  {
    EXPECT_EQ(StopUnixDomainListen(record), 0);
  }
  unix_domain_listen_st* record;
};

int say(const std::string& path, std::string text)
{
  return SendUnixDomainDataToName(text.data(), int(text.size()), path.c_str(), 5, 0, 0, nullptr, nullptr);
}

/// The answer, at most room bytes of it; "-1" when there is none.
std::string ask(const std::string& path, std::string text, int timeoutUs = 900000, int room = 8192)
{
  std::string reply(static_cast<size_t>(room), '?');
  const int result = SendUnixDomainDataToName(text.data(), int(text.size()), path.c_str(), 0, timeoutUs, 1,
                                              reply.data(), &room);
  reply.resize(static_cast<size_t>(room));
  return result == 0 ? reply : std::to_string(result);
}

} // namespace

TEST(UnixDomain, AnswersDatagramsOfEverySizeOverAStaleSocketFile)
{
  const std::string path = path_in_temp("sizes");
  std::atomic<int> received{0};
  CaptureStdout();
  RawSocket().Bind(path);
  EXPECT_EQ(ask(path, "anybody?"), "-1");
  std::string sock;
  {
    const Listener listener(path, &received);
    sock = std::to_string(relaxed_load(listener.record->sock));
    EXPECT_EQ(ask(path, "ping"), "4:ping");
    EXPECT_TRUE(RawSocket().Send(path)); // no address: it must not cut the next sender's
    EXPECT_EQ(ask(path, std::string(4352, 'x')), "4352:" + std::string(4352, 'x'));
    EXPECT_EQ(ask(path, std::string(5000, 'y')), "4352:" + std::string(4352, 'y'));
    EXPECT_EQ(ask(path, ""), "0:");
    EXPECT_EQ(ask(path, "a reply that is cut", 900000, 4), "19:a");
    EXPECT_EQ(say(path, "no reply"), 0);
    EXPECT_TRUE(eventually([&] { return received == 7; }));
    EXPECT_FALSE(own_address_is_left());
  }
  EXPECT_EQ(GetCapturedStdout(), "UnixDomainProc fd = " + sock + ", pid = " + std::to_string(getpid()) +
                                     "\nUnix Domain Thread Exit\n");
  EXPECT_EQ(unlink(path.c_str()), 0); // stopping leaves it
}

TEST(UnixDomain, LongPathsMeanTheirFirst107Characters)
{
  const std::string head = path_in_temp("long");
  const std::string cut = head + std::string(107 - head.size(), 'p');
  for (const unsigned more : {0U, 1U, 5000U})
  {
    const std::string path = cut + std::string(more, 'x');
    const Listener listener(path); // over the stale file of the one before
    EXPECT_EQ(listener.record->path, path.substr(0, 255));
    EXPECT_EQ(listener.record->thread->name, ("Start Unix Domain Listen: " + cut).substr(0, 62));
    EXPECT_EQ(ask(cut + "another tail", "x"), "1:x");
    EXPECT_EQ(access(cut.c_str(), F_OK), 0);
  }
  unlink(cut.c_str());
  std::string nowhere = testing::TempDir() + "no/such/folder";
  EXPECT_EQ(StopUnixDomainListen(StartUnixDomainListen(nowhere.data(), answer, nullptr)), 0);
  EXPECT_EQ(StopUnixDomainListen(StartUnixDomainListen(nullptr, answer, nullptr)), 0);
}

TEST(UnixDomain, ASenderWhosePathFillsItsAddressIsAnswered)
{
  const std::string path = path_in_temp("full");
  RawSocket asker;
  sockaddr_un own = unix_domain_address((path + "_asker" + std::string(108, 'p')).c_str());
  own.sun_path[sizeof own.sun_path - 1] = 'p'; // no zero behind it
  ASSERT_EQ(bind(asker.sock, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
  {
    const Listener listener(path);
    EXPECT_TRUE(asker.Send(path));
    pollfd answered{asker.sock, POLLIN, 0};
    EXPECT_EQ(poll(&answered, 1, 5000), 1);
  }
  unlink(std::string(own.sun_path, sizeof own.sun_path).c_str());
  unlink(path.c_str());
}

TEST(UnixDomain, AnIdleListenerAnswersAtOnceAndStopsSoon)
{
  const std::string path = path_in_temp("idle");
  auto listener = std::make_unique<Listener>(path);
  usleep(1100000); // the long wait is used up
  const auto work = [&]
  {
    for (int i = 0; i < 50; ++i)
      EXPECT_EQ(ask(path, "x"), "1:x");
    listener.reset();
  };
  EXPECT_LT(seconds_of(work), 0.8);
  unlink(path.c_str());
}

TEST(UnixDomain, ListenersStartAndStopAtOnceUnderTheWatchdog)
{
  std::vector<std::thread> owners;
  for (int owner = 0; owner < 6; ++owner)
  {
    owners.emplace_back(
        [path = path_in_temp(std::to_string(owner))]
        {
          for (int round = 0; round < 2; ++round)
          {
            std::atomic<int> received{0};
            const Listener listener(path, &received);
            EXPECT_TRUE(RawSocket().Send(path));
            EXPECT_TRUE(eventually([&] { return received == 1 && CCommDog::Instance()->CheckDog() == 0; }));
          }
          unlink(path.c_str());
        });
  }
  for (std::thread& owner : owners)
    owner.join();
  for (int dog = 0; dog < 12; ++dog)
    EXPECT_EQ(CCommDog::Instance()->FeedDog(dog), -1); // every one has gone
}

TEST(UnixDomain, AListenerMayBeStoppedFromItsCallback)
{
  static std::atomic<unix_domain_listen_st*> handle;
  std::string path = path_in_temp("inside");
  const auto stop = [](int, sockaddr_un*, unsigned*, char*, int, void*)
  {
    return StopUnixDomainListen(handle);
  };
  handle = static_cast<unix_domain_listen_st*>(StartUnixDomainListen(path.data(), stop, nullptr));
  EXPECT_TRUE(eventually([&] { return say(path, "stop") == 0; }));
  EXPECT_TRUE(eventually([&] { return say(path, "still there?") == -1; })); // freed: the sanitizers watch
  unlink(path.c_str());
}

TEST(UnixDomain, ASenderSaysWhyItFailedAndWaitsNoLongerThanAsked)
{
  const std::string path = path_in_temp("deaf");
  const std::string cannotSend = "send to " + path + " fail(";
  const std::string noReply = "wait recv " + path + " fail\n\n";
  const auto message = [&](int sec, int usec, int wants, int len)
  {
    std::vector<char> data(static_cast<size_t>(std::max(len, 1)));
    char reply[8];
    int room = sizeof reply;
    CaptureStdout();
    EXPECT_EQ(SendUnixDomainDataToName(data.data(), len, path.c_str(), sec, usec, wants, reply, &room), -1);
    EXPECT_FALSE(own_address_is_left());
    const std::string line = GetCapturedStdout();
    return line.empty() ? line : line.substr(line.find("] ") + 2);
  };
  EXPECT_EQ(message(5, 0, 1, 1), ""); // nobody there
  {
    RawSocket deaf;
    deaf.Bind(path);
    EXPECT_EQ(message(5, 0, 1, -1), cannotSend + "-4)\n\n");
    EXPECT_EQ(message(5, 0, 1, 16 << 20), cannotSend + "-4)\n\n");
    EXPECT_EQ(message(-1, 0, 1, 1), cannotSend + "-2)\n\n");
    EXPECT_EQ(message(0, 50000, 1, 1), noReply);
    RawSocket filler;
    while (filler.Send(path)) // until its queue is full
      continue;
    EXPECT_EQ(message(0, 50000, 0, 1), cannotSend + "-3)\n\n");
    const SignalStorm storm;
    EXPECT_EQ(message(5, 0, 0, 1), cannotSend + "-1)\n\n");
  }
  char data[] = "x";
  EXPECT_EQ(SendUnixDomainDataToName(data, 1, nullptr, 5, 0, 0, nullptr, nullptr), -1);
  EXPECT_EQ(SendUnixDomainDataToName(data, 1, path.c_str(), 5, 0, 1, nullptr, nullptr), -1);
  EXPECT_EQ(SendUnixDomainDataToAddr(1, nullptr, nullptr, data, 1), -1);
  unlink(path.c_str());
}

TEST(UnixDomain, AListenerKilledAtAnyMomentNeitherBlocksNorCheatsASender)
{
  const std::string path = path_in_temp("killed");
  unsigned random = 20240607;
  int answers = 0;
  for (int run = fault_runs(); run > 0; --run)
  {
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
    {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const Listener listener(path);
      pause();
    }
    ASSERT_TRUE(
        eventually([&] { return ask(path, "up?") == "3:up?"; })); // over the file of the one killed before
    random = random * 1664525 + 1013904223;
    std::thread killer(
        [child, random]
        {
          usleep(random >> 20); // up to 4 ms
          kill(child, SIGKILL);
        });
    for (std::string got = "6:alive?"; got != "-1"; ++answers)
    {
      EXPECT_EQ(got, "6:alive?");
      got = ask(path, "alive?", 40000);
    }
    killer.join();
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(say(path, "dead"), -1);
  }
  printf("%d answers\n", answers);
  unlink(path.c_str());
}

TEST(UnixDomain, LogLinesCarryTheirHeadAndKeepWithinTheirSize)
{
  CaptureStdout();
  UnixDomainDbgLog("%s fell\n", "100%n%s");
  UnixDomainDbgLog("%s", std::string(5000, 'x').c_str());
  std::string lines = GetCapturedStdout();
  const std::string head = "[99999999-999999][" + std::string(program_invocation_short_name) + "] ";
  for (char& c : lines)
    c = c >= '0' && c <= '8' ? '9' : c;
  EXPECT_EQ(lines, head + "999%n%s fell\n\n" + head + std::string(1023 - head.size(), 'x') + "\n");
}
