#include <devcomm/http_download.h>

#include "support/measure.h"
#include "support/scratch_folder.h"
#include "support/scripted_server.h"
#include "support/signal_storm.h"

#include <sys/time.h>

#include <fstream>
#include <memory>
#include <tuple>
#include <vector>

namespace
{

/// Sends one answer per connection and keeps the requests.
class Server
{
public:
  using Answer = std::function<std::string(const Server&, size_t)>;

  /// @param byteByByte  with a short pause after each
  explicit Server(Answer answer, bool byteByByte = false)
  {
    m_server = std::make_unique<ScriptedServer>(
        [this, answer, byteByByte](ScriptedPeer& peer)
        {
          std::string request;
          for (std::string line; !(line = peer.Line()).empty();)
            request += line + "\r\n";
          m_requests.push_back(request + "\r\n");
          const std::string text = answer(*this, m_requests.size() - 1);
          const size_t part = byteByByte ? 1 : text.size();
          for (size_t i = 0; i < text.size() && peer.Send(text.substr(i, part)); i += part)
            usleep(20);
        });
    m_port = m_server->port;
  }
  explicit Server(const std::string& answer, bool byteByByte = false)
      : Server([answer](const Server&, size_t) { return answer; }, byteByByte)
  {
  }

  std::string Port() const
  {
    return std::to_string(m_port);
  }
  std::string Url(const std::string& path) const
  {
    return "http://127.0.0.1:" + Port() + path;
  }
  /// Ends the service.
  const std::vector<std::string>& Requests()
  {
    m_server.reset();
    return m_requests;
  }

private:
  std::vector<std::string> m_requests;
  std::atomic<int> m_port{0};
  std::unique_ptr<ScriptedServer> m_server;
};

/// A place for a file.
struct Scratch
{
  /// "<none>" when there is no file.
  std::string Content() const
  {
    std::ifstream file(path, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<none>";
  }
  ScratchFolder folder;
  std::string path = folder.path + "/got";
};

/// Downloads, and expects a result. @return what was printed
std::string download(int result, std::string url, std::string path)
{
  CaptureStdout();
  EXPECT_EQ(http_download(&url[0], &path[0]), result);
  return GetCapturedStdout();
}

bool contains(const std::string& text, const std::string& part)
{
  return text.find(part) != std::string::npos;
}

std::string ok(const std::string& rest)
{
  return "HTTP/1.1 200 OK\r\n" + rest;
}

std::string chunks(const std::string& rest)
{
  return ok("Transfer-Encoding: chunked\r\n\r\n" + rest);
}

} // namespace

TEST(HttpDownload, AsksForTheRestOfAFileAppendsItAndTellsEachStep)
{
  const std::string body(40, 'b');
  Scratch file;
  std::ofstream(file.path) << std::string(1000, 'a');
  Server server("HTTP/1.1 206 Partial\r\nX: y\r\nCONTENT-LENGTH: 40\r\n\r\n" + body);
  const std::string said = download(0, server.Url("/a?b=c"), file.path);
  const std::string request = "GET /a?b=c HTTP/1.1\r\nRANGE: bytes=1000-\r\nAccept: */*\r\nHost: "
                              "127.0.0.1\r\nConnection: Close\r\n\r\n";
  EXPECT_EQ(said, "parse url ok\nhost:127.0.0.1, port:" + server.Port() +
                      ", uri:/a?b=c\n10s 0us\n127.0.0.1 address is 127.0.0.1\nrequest:\n" + request +
                      "\nhttp status code: 206\nX: y\r\nCONTENT-LENGTH: 40\r\nContent-length: 40\n"
                      "recv data now\nread len: 40\nrecv 40 bytes\n"
                      "Average download speed: 0.04KB/s\n");
  EXPECT_EQ(server.Requests(), std::vector<std::string>{request});
  EXPECT_EQ(file.Content(), std::string(1000, 'a') + body);

  // A range beyond 2 GiB keeps all its digits, and a server that ignores it is appended.
  ASSERT_EQ(truncate(file.path.c_str(), 3000000000), 0);
  Server whole(ok("Content-Length: 2\r\n\r\nok"));
  download(0, whole.Url("/"), file.path);
  EXPECT_TRUE(contains(whole.Requests()[0], "RANGE: bytes=3000000000-\r\n"));
  EXPECT_EQ(std::ifstream(file.path, std::ios::ate).tellg(), std::streampos(3000000002));
}

TEST(HttpDownload, EveryAnswerEndsAndNoneStoresLessThanItSays)
{
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
      {ok("Content-Length: 4\r\n\r\nbody beyond"), 0, "body", "recv 4 bytes\n"},
      {ok("\r\nbody"), 0, "<none>", "recv 0 bytes\n"},
      {ok("Content-Length: 10\r\n\r\nshort"), -1, "<none>",
       "socket closed by peer\nread len: 5\nwe need to read 10 bytes, but read 0 bytes now\n"},
      {ok("Content-Length: 20000\r\n\r\n" + std::string(10000, 'x')), -1, std::string(8192, 'x'),
       "read len: 8192\nsocket closed by peer\nread len: 1808\nwe need to read 20000 bytes, but read 8192 "},
      // Lengths that are none, or stand where they count for nothing.
      {ok("Content-Length: -1\r\n\r\nbody"), -1, "<none>", "Content-length: -1\n"},
      {ok("Content-Length: 4294967300\r\n\r\nbody"), -1, "<none>", "bad http head\n"},
      {ok("Content-Length: many\r\n\r\nbody"), -1, "<none>", "bad http head\n"},
      {ok("Content-Length\r\n\r\nbody"), -1, "<none>", "bad http head\n"},
      {ok("Content-Length:"), -1, "<none>", "bad http head\n"},
      {ok("Content-Length: 4\r\nExpose: Content-Length\r\n\r\nbody"), 0, "body", ""},
      // Chunks.
      {chunks("4\r\nabcd\r\n0\r\n\r\n"), 0, "abcd",
       "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n"},
      {chunks("A;x=y\r\n0123456789\r\n1\r\n!\r\n0\r\nTrailer: t\r\n\r\n"), 0, "0123456789!",
       "part len: 10\n"},
      {chunks("4;" + std::string(9000, 'a') + "\r\nabcd\r\n0\r\n\r\n"), 0, "abcd", ""},
      {chunks("4\r\nabcd\r\n"), -1, "abcd", ""},
      {chunks("4\r\nabcd\r\n0\r\n"), -1, "abcd", "fread \\r\\n error : "},
      {chunks("9\r\nabcd\r\n"), -1, "<none>", "socket closed by peer\n"},
      {chunks("4\r\nabcdefgh\r\n0\r\n\r\n"), -1, "abcd", "fread \\r\\n error : "},
      {chunks("-4\r\nabcd\r\n0\r\n\r\n"), -1, "<none>", "part len: -4\n"},
      {chunks("80000000\r\nabcd\r\n0\r\n\r\n"), -1, "<none>", ""},
      {chunks("FFFFFFFFFFFFFFFFFFFF\r\nabcd\r\n0\r\n\r\n"), -1, "<none>", ""},
      {chunks("none\r\nabcd\r\n0\r\n\r\n"), -1, "<none>", "part len: 0\n"},
      {ok("Transfer-Encoding: gzip\r\n\r\nbody"), -1, "<none>", "Not support Transfer-Encoding: gzip\r\n"},
      // Statuses and heads.
      {"HTTP/1.1 404 No\r\nContent-Length: 4\r\n\r\nbody", -1, "<none>", "Page not found\n"},
      {"HTTP/1.1 301 Moved\r\nLocation: /\r\n\r\n", -1, "<none>", "Not supported http code 301\n"},
      {"HTTP/1.1 99999999999 ?\r\n\r\n", -1, "<none>", "Not supported http code 0\n"},
      {"HTTP/1.1-200\r\n\r\n", -1, "<none>", "bad http head\n"},
      {"FTP/1.1 200 OK\r\n\r\n", -1, "<none>", "bad http head\n"},
      {ok("Content-Length: 4\r\n"), -1, "<none>", "bad http head\n"},
      {"HTTP/1.1 302 Found\r\n\r\n", -1, "<none>", "redirect: \nurl invaild\n"},
      {"HTTP/1.1 302 Found\r\nLocation: /relative\r\n\r\n", -1, "<none>", "Get Dns Failed\n"},
      // The line end of a line that is too long is no end of the head; an endless head is none.
      {ok("X: " + std::string(8188, 'x') + "\r\nContent-Length: 4\r\n\r\nbody"), 0, "body", ""},
      {ok("X: " + std::string(8188, 'x') + "Content-Length: 9\r\n\r\nbody"), 0, "<none>", ""},
      {ok(std::string(2000000, 'x')), -1, "<none>", "bad http head\n"},
  };
  const int freeFd = lowest_free_fd();
  for (const auto& [answer, value, stored, said] : cases)
  {
    for (const bool byteByByte : {false, true})
    {
      if (byteByByte && answer.size() > 300)
        continue;
      SCOPED_TRACE(answer.substr(0, 100) + (byteByByte ? " byte by byte" : ""));
      Scratch file;
      Server server(answer, byteByByte);
      const std::string printed = download(value, server.Url("/"), file.path);
      EXPECT_EQ(file.Content(), stored);
      EXPECT_TRUE(contains(printed, said)) << printed;
    }
  }
  EXPECT_EQ(lowest_free_fd(), freeFd);
}

TEST(HttpDownload, FollowsARingOfRedirectsUntilAServerInItEndsIt)
{
  constexpr size_t Rounds = 200;
  for (const bool endsWell : {true, false})
  {
    Scratch file;
    Server server(
        [&](const Server& self, size_t n)
        {
          if (n < Rounds)
            return "HTTP/1.1 302 Found\r\nLocation: " + self.Url("/ring" + std::to_string(n % 3)) +
                   "\r\n\r\n";
          return endsWell ? ok("Content-Length: 4\r\n\r\ndone") : std::string();
        });
    const std::string said = download(endsWell ? 0 : -1, server.Url("/start"), file.path);
    EXPECT_EQ(file.Content(), endsWell ? "done" : "<none>");
    EXPECT_TRUE(contains(said, "redirect: " + server.Url("/ring1")));
    ASSERT_EQ(server.Requests().size(), Rounds + 1);
    EXPECT_EQ(server.Requests()[2].rfind("GET /ring1 HTTP/1.1\r\nRANGE: bytes=0-\r\nAccept", 0), 0U);
  }
}

TEST(HttpDownload, TakesAddressesApart)
{
  const std::tuple<std::string, std::string, int, std::string> good[] = {
      {"http://h.x:65534/a/b?c:d", "h.x", 65534, "/a/b?c:d"},
      {"HTTP://h/", "h", 80, "/"},
      {"beforehost/x?http://", "ost", 80, "/x?http://"}, // anywhere in the text, and 7 characters go
      {std::string(300, 'h') + "/" + std::string(3000, 'u'), std::string(255, 'h'), 80,
       "/" + std::string(2046, 'u')}};
  for (auto [url, host, port, uri] : good)
  {
    http_t h{};
    EXPECT_EQ(parser_URL(&url[0], &h), 0) << url;
    EXPECT_EQ(h.host, host);
    EXPECT_EQ(h.port, port);
    EXPECT_EQ(h.uri, uri);
  }
  for (std::string url :
       {"http://h", "", "h:65535/x", "h:0/x", "h:-1/x", "h:/9", "h:4294967376/x", "h:99999999999999999999/x"})
  {
    http_t h{};
    CaptureStdout();
    EXPECT_EQ(parser_URL(&url[0], &h), -1) << url;
    EXPECT_EQ(GetCapturedStdout(), url.rfind("h:", 0) == 0 ? "url port invaild\n" : "url invaild\n");
  }
}

TEST(HttpDownload, FailsCleanlyWithoutAHostAServerOrAFile)
{
  const int freeFd = lowest_free_fd();
  Scratch file;
  const std::string nowhere(64, 'n'); // too long for a name, so nobody is asked
  Server server(ok("Content-Length: 4\r\n\r\nbody"));
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {nowhere + "/", file.path, "gethostbyname " + nowhere + " failed\nGet Dns Failed\n"},
      {Server("").Url("/"), file.path, "connect failed: Connection refused\n"}, // it has gone again
      // A disk that is full shows only when the stream is emptied.
      {server.Url("/"), "/dev/full", "fwrite error: No space left on device\n"},
      {server.Url("/"), "/", "fopen / error: Is a directory\n"}};
  for (const auto& [url, path, said] : cases)
  {
    const std::string printed = download(-1, url, path);
    EXPECT_TRUE(contains(printed, said)) << printed;
  }
  server.Requests(); // it ends
  EXPECT_EQ(http_download(nullptr, &file.path[0]), -1);
  EXPECT_EQ(http_download(&file.path[0], nullptr), -1);
  EXPECT_EQ(lowest_free_fd(), freeFd);
}

TEST(HttpDownload, SignalsLoseNothingAndASilentPeerEndsAStep)
{
  // The socket has a time-out, so every signal breaks into a read: of a line, of a body, of a chunk's end.
  Scratch file;
  std::string body;
  std::string whole;
  for (int i = 100; i < 400; ++i)
  {
    body += "3;ext\r\n" + std::to_string(i) + "\r\n";
    whole += std::to_string(i);
  }
  Server server(chunks(body + "0\r\n\r\n"), true);
  {
    SignalStorm storm;
    download(0, server.Url("/"), file.path);
    EXPECT_GT(SignalStorm::count(), 10);
  }
  EXPECT_EQ(file.Content(), whole);

  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  auto* h = static_cast<http_t*>(calloc(1, sizeof(http_t)));
  CaptureStdout();
  EXPECT_EQ(set_socket_option(ends[0]), 0);
  timeval limit{};
  socklen_t size = sizeof limit;
  EXPECT_EQ(getsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, &size), 0);
  EXPECT_EQ(limit.tv_sec, 10);
  limit = {0, 50000}; // nobody wants to wait here
  EXPECT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
  h->sock = ends[0];
  h->in = fdopen(ends[0], "r");
  h->save_path = file.path.c_str();
  EXPECT_EQ(write(ends[1], "abc", 3), 3);
  EXPECT_EQ(read_data(h, 10), -1);
  EXPECT_EQ(write(ends[1], "HTTP/1.1 200 OK\r\nX", 18), 18);
  EXPECT_EQ(parse_http_header(h), -1);
  EXPECT_EQ(GetCapturedStdout(),
            "10s 0us\nsocket recvice timeout: 10000ms\nread len: 3\n"
            "we need to read 10 bytes, but read 0 bytes now\nhttp status code: 200\nbad http head\n");
  EXPECT_EQ(file.Content(), whole);
  clean_up(h);
  close(ends[1]);
}

TEST(HttpDownload, HelpersFindGatherAndCount)
{
  char text[] = "Content-LENGTH: 5";
  char word[] = "t-length";
  char absent[] = "lengthy";
  char empty[] = "";
  EXPECT_EQ(strncasestr(text, word), text + 6);
  for (auto pair :
       {std::make_pair(text, absent), {text, empty}, {empty, word}, {nullptr, word}, {text, nullptr}})
    EXPECT_EQ(strncasestr(pair.first, pair.second), nullptr);

  http_text_t reply{};
  EXPECT_EQ(WriteGetDataCallback(text, 1, 7, &reply), 7U);
  EXPECT_EQ(WriteGetDataCallback(text + 7, 5, 2, &reply), 10U);
  EXPECT_STREQ(reply.text, text);
  CaptureStdout();
  EXPECT_EQ(WriteGetDataCallback(text, 1, SIZE_MAX - 17, &reply), 0U);
  EXPECT_EQ(WriteGetDataCallback(text, SIZE_MAX / 2 + 2, 2, &reply), 0U);
  EXPECT_TRUE(contains(GetCapturedStdout(), "not enough memory (realloc returned NULL)\n"));
  EXPECT_EQ(reply.length, 17U);
  EXPECT_STREQ(reply.text, text);
  free(reply.text);

  http_t h{};
  h.recv_bytes = 3000;
  EXPECT_FLOAT_EQ(calc_download_speed(&h), 3000);
  h.end_time = 4;
  EXPECT_FLOAT_EQ(calc_download_speed(&h), 750);
  EXPECT_EQ(BdGetAddress(1, 2, text, 5, 3), -1);
  EXPECT_STREQ(text, "Content-LENGTH: 5");
}
