#include <devcomm/ftp_client.h>

#include "support/scripted_server.h"
#include "support/signal_storm.h"

#include <fcntl.h>

#include <cstdarg>
#include <cstring>
#include <map>
#include <tuple>
#include <vector>

namespace
{

std::string logged; // "level:text" for each call of the log function, all on the test's thread

int log_text(unsigned int level, const char* format, ...) // NOLINT(cert-dcl50-cpp)
{
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  logged += std::to_string(level) + ":" + text;
  return 0;
}

bool was_logged(const std::string& text)
{
  return logged.find(text) != std::string::npos;
}

const std::string kPort = "(1,2,3,4,P)"; // another host's address; P stands for the data server's port

using Answers = std::map<std::string, std::string>; // by verb; "listing" is what the data server sends

/// A server that answers each verb by a table, and a client that knows it. An answer of "" ends the connection.
struct Session
{
  explicit Session(Answers changes = {}, const std::string& remotedir = "a/b", const char* subdir = "",
                   int download = 0)
      : answers(std::move(changes))
  {
    answers.insert({{"USER", "331 Who"}, {"PASS", "230 In"}, {"MKD", "257 Made"}, {"CWD", "250 There"}});
    answers.insert({{"TYPE", "200 Binary"}, {"PASV", "227 Passive " + kPort + "."}});
    answers.insert({{"REST", "350 Go on"}, {"QUIT", "221 Bye"}});
    logged.clear();
    client.Init(log_text);
    UserDefServerSet_t settings{};
    settings.server_port = static_cast<uint16_t>(control.port);
    strcpy(settings.server_addr, "127.0.0.1");
    memset(settings.username, 'u', sizeof settings.username);
    strcpy(settings.password, "secret");
    memcpy(settings.remotedir, remotedir.data(), remotedir.size());
    client.FtpSetServerInfo(download, &settings);
    client.FtpSetLocalInfo(subdir, "f.bin");
  }
  ~Session()
  {
    client.FtpCloseFd();
  }

  void Change(const std::string& verb, const std::string& text)
  {
    const std::lock_guard<std::mutex> lock(mutex);
    answers[verb] = text;
  }

  std::string Answer(const std::string& verb, const std::string& command = "")
  {
    const std::lock_guard<std::mutex> lock(mutex);
    commands += command;
    const auto found = answers.find(verb);
    std::string text = found == answers.end() ? "150 Go" : found->second;
    const size_t at = text.find('P', text.find(kPort));
    return at == std::string::npos
               ? text
               : text.replace(at, 1, std::to_string(data.port / 256) + "," + std::to_string(data.port % 256));
  }

  /// What the server was sent since the last call.
  std::string Commands()
  {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(commands, "");
  }

  Answers answers;
  std::string commands;
  std::mutex mutex; // guards the two above
  CFtpClient client;
  ftp_sdk_data_t& state = *client.FtpGetClientData();
  ScriptedServer data{[this](ScriptedPeer& peer)
                      {
                        const std::string text = Answer("listing");
                        text == "stall" ? (void)peer.AtEnd() : (void)peer.Send(text);
                      }};
  ScriptedServer control{[this](ScriptedPeer& peer)
                         {
                           std::string answer = "220 Ready";
                           while (!answer.empty() && peer.Send(answer + "\r\n"))
                           {
                             const std::string line = peer.Line();
                             answer = line.empty() ? "" : Answer(line.substr(0, line.find(' ')), line + "|");
                           }
                         }};
};

const std::string kLogin = "USER " + std::string(23, 'u') + "|PASS secret|";

TEST(FtpClient, StartsASessionInTheDirectoriesOfItsDirection)
{
  const std::tuple<const char*, const char*, int, const char*> cases[] = {
      {"a/b", "", 0, "MKD /a|MKD /a/b|CWD a/b|"},
      {"a//b/", nullptr, 0, "MKD /a|MKD /a/b|CWD a//b/|"},
      {"", "", 0, ""},
      {"a", "s", 0, "MKD a|CWD /a|MKD s|CWD /a/s|"},
      {"a", "a", 0, "MKD a|MKD a|"},
      {"a/b", "s", 1, "CWD a/b|"}};
  for (const auto& [remotedir, subdir, download, commands] : cases)
  {
    Session session({}, remotedir, subdir, download);
    ASSERT_EQ(session.client.FtpStart(), 0);
    EXPECT_EQ(session.Commands(), kLogin + commands);
    EXPECT_STREQ(session.state.server_ip, "127.0.0.1");
    EXPECT_EQ(session.state.status, 3);
    EXPECT_EQ(session.client.FtpStart(), -1);
    EXPECT_TRUE(was_logged("2:FTP STATUS ERROR rc = 1"));
    EXPECT_EQ(session.client.FtpDisconnect(), 0);
    EXPECT_EQ(session.state.status, 1);
    char line[] = "NOOP\r\n";
    EXPECT_EQ(session.client.FtpSendLine(line), 0);
    EXPECT_TRUE(was_logged("2:this->m_ftp_sdk_data.status:1 cmd:NOOP\r\n\n"));
    EXPECT_EQ(session.client.FtpStart(), 0);
    EXPECT_EQ(session.Commands(), "QUIT|" + kLogin + commands);
  }
}

TEST(FtpClient, FindsTheReplyInWhateverAServerSends)
{
  const auto start = std::chrono::steady_clock::now();
  const std::string text(10000, '2');
  const std::tuple<std::string, int, const char*> cases[] = {
      {"220-Hi\r\n220\r\n x\r\n220 Ready\r\n", 220, "0:connect ftp server ...OK!"},
      {"220-" + text + "\r\n220 Ready\r\n", 220, "0:connect ftp server ...OK!"},
      {"099 Low\r\n", 0, "2:Unknown error"},
      {"no code\r\n", 0, "2:FTP server disconnected"},
      {"220-Hi\r\n\r\n220 Late\r\n", 0, "0:Big bad error.. empty string returned by ftp_readline"},
      {"120 Wait\r\n", 0, "0:Service not yet ready.. waiting for 15 seconds2:FTP server disconnected"},
      {"421 Full %s%n\r\n", 421, "2:Service not available, closing control connection."},
      {std::string(30000, '\r') + "230-" + text, 0, "2:FTP server disconnected2:Unknown error"}};
  for (const auto& [hello, code, log] : cases)
  {
    Session session;
    ScriptedServer server(
        [&hello = hello](ScriptedPeer& peer)
        {
          const size_t piece = hello.size() < 100 ? 1 : hello.size();
          for (size_t at = 0; at < hello.size(); at += piece)
            peer.Send(hello.substr(at, piece));
        });
    session.state.server_port = static_cast<uint16_t>(server.port);
    EXPECT_EQ(session.client.FtpConnect(), code == 220 ? 0 : -1) << hello.substr(0, 50);
    EXPECT_TRUE(was_logged(log)) << logged;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // no pause of 15 s

  // 200 characters and the end are one line; of 202 the 201st is lost and the next begins the following line.
  Session session(Answers{{"NOOP", std::string(200, 'x') + "\r\n" + std::string(200, 'y') + "zw"}});
  ASSERT_EQ(session.client.FtpStart(), 0);
  char noop[] = "NOOP\r\n";
  EXPECT_EQ(session.client.FtpSendLine(noop), 6);
  char line[201];
  EXPECT_EQ(session.client.FtpReadLine(line, 0), std::string(200, 'x'));
  EXPECT_EQ(session.client.FtpReadLine(line, 0), std::string(200, 'y'));
  EXPECT_STREQ(session.client.FtpReadLine(line, 0), "w");
}

TEST(FtpClient, TellsWhyALoginOrADirectoryWasRefused)
{
  const std::tuple<const char*, const char*, int, const char*> logins[] = {
      {"USER", "230 Welcome", 3, "0:Don't need to send password\n"},
      {"USER", "332 x", 2, "2:This program does not support user accounts\n"},
      {"USER", "530 x", 2, "2:Not logged in as uuuuuuuuuuuuuuuuuuuuuuu\n"},
      {"USER", "999 x", 2, "2:Unknown response to USER: 999\n"},
      {"PASS", "202 x", 3, ""},
      {"PASS", "530 x", 1, "2:Login incorrect\n"},
      {"PASS", "503 x", 2, "2:Server doesn't understand PASS\n"},
      {"PASS", "", 1, "2:Unknown response to PASS: 0\n"}};
  for (const auto& [verb, answer, status, log] : logins)
  {
    Session session(Answers{{verb, answer}});
    ASSERT_EQ(session.client.FtpConnect(), 0);
    EXPECT_EQ(session.client.FtpLogin(), status == 3 ? 0 : -1) << answer;
    EXPECT_EQ(session.state.status, status) << answer;
    EXPECT_TRUE(was_logged(log)) << logged;
  }

  Session session(Answers{{"REIN", "421 x"}, {"MKD", "500 What"}, {"CWD", "550 Gone"}});
  session.Change("PWD", "257 \"" + std::string(150, 'd') + "\" is it");
  EXPECT_EQ(session.client.FtpPwd(), -1); // not before the login
  ASSERT_EQ(session.client.FtpStart(), 0);
  EXPECT_EQ(session.client.FtpLogin(), -1);
  EXPECT_TRUE(was_logged("2:FtpLogin:725 Service unavailable\n"));
  EXPECT_EQ(session.client.FtpPwd(), 0);
  EXPECT_TRUE(was_logged("0:response to PWD: " + std::string(128, 'd') + "\n"));
  EXPECT_EQ(session.client.FtpMkd(0), -1);
  EXPECT_TRUE(was_logged("0:Server doesn't understand \"MKD 500 What\"\n"));
  EXPECT_EQ(session.client.FtpCwd(0), -1);
  EXPECT_TRUE(was_logged("2:Directory \"550 Gone\" does not exist\n"));
  session.Change("CWD", "250 ok");
  EXPECT_EQ(session.client.FtpCwd(0), 0);
  EXPECT_TRUE(was_logged("0:(CWD CWD /a/b\r\n) sucess\n"));
  session.Commands();
  std::string endless(1100, 'x');
  char second[] = "x\r\nDELE y";
  EXPECT_EQ(session.client.FtpMkd(endless.data()), -1);
  EXPECT_EQ(session.client.FtpCwd(second), -1);
  EXPECT_EQ(session.Commands(), ""); // refused, not cut
}

TEST(FtpClient, AnswersEveryPasvReplyAndNeverTouchesANumberItGaveUp)
{
  const std::tuple<const char*, int, const char*> cases[] = {
      {"226 Done\r\n227 ok (1,2,3,4,P)", 0, ""},
      {"226 Done\r\n500 x", 0, "2:Unknown response to PASV: 500\n"},
      {"421 x", -2, "2:Service unavailable\n"},
      {"425 x", -2, "2:can not open data oprt/host close data port 127.0.0.1\n"},
      {"502 x", 0, "2:Server doesn't understand PASV\n"},
      {"530 x", 0, "2:Not logged in\n"},
      {"227 none", -1, ""},
      {"227 )1,2,3,4,5,6(", -1, ""},
      {"227 (1,2,3,4,5)", -1, ""},
      {"227 (1,2,3,4,-1,-1)", -1, "1240 Connection refused to 127.0.0.1 and port = 65279\n"},
      {"227 (99999999999,0x7fffffff,-2147483648,4,99999999999999999999,99999999999)", -1, ""}};
  for (const auto& [answer, result, log] : cases)
  {
    Session session(Answers{{"listing", "stall"}});
    ASSERT_EQ(session.client.FtpStart(), 0);
    ASSERT_EQ(session.client.FtpOpenDataPasv(), 0);
    EXPECT_EQ(session.state.status, 5);
    // A number that no thread of the server takes by itself.
    const int old = fcntl(session.state.data_fd, F_DUPFD_CLOEXEC, 200);
    close(std::exchange(session.state.data_fd, old));
    session.Change("PASV", answer);
    EXPECT_EQ(session.client.FtpOpenDataPasv(), result) << answer;
    EXPECT_TRUE(was_logged(log)) << logged;
    if (session.state.data_fd == old)
    {
      // Somebody else gets the closed number. A server that starts the transfer all the same harms nobody.
      const int stranger = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, old);
      ASSERT_EQ(stranger, old);
      session.client.FtpGetListFile();
      session.client.FtpCreateDateSockFd(0, 0);
      EXPECT_EQ(session.client.FtpWriteDate(session.state.data_fd, "x", 1, 1), -1);
      session.client.FtpClose();
      EXPECT_EQ(close(stranger), 0);
    }
  }

  Session session(Answers{{"PASV", "500 x"}});
  ASSERT_EQ(session.client.FtpStart(), 0);
  EXPECT_EQ(session.client.FtpGetServerDirFile(), -1); // LIST was sent, descriptor 0 not waited for
  EXPECT_EQ(session.state.data_fd, 0);
  EXPECT_NE(session.Commands().find("LIST /a/b/f.bin|"), std::string::npos);
  char numbers[] = "010,0x10,3,-4,2,1";
  char address[48];
  EXPECT_EQ(session.client.FtpParsePasv(numbers, address), 513);
  EXPECT_STREQ(address, "8.16.3.-4");
}

TEST(FtpClient, ReadsTheListingOfOneFile)
{
  const std::string unixLine = "-rw-r--r-- 1 ftp ftp 1048576 Mar 3 10:00 ";
  const std::tuple<const char*, std::string, int, int, int, std::string, int> cases[] = {
      {"150 x", unixLine + "a.bin\r\n", 0, 1, 1048576, "a.bin", 5},
      {"125 x", "03-03-21 10:00AM 1048576 two words\r\n", 0, 1, 1048576, "two", 3},
      {"150 x", unixLine + "a.bin", 0, 0, 0, "", 0},
      {"150 x", unixLine + "a\r\n" + unixLine + "b\r\n", 0, 7, 1048576, "a", 1},
      {"150 x", unixLine + std::string(126, 'n') + "\r\n", 0, 1, 1048576, std::string(126, 'n'), 126},
      {"150 x", unixLine + std::string(127, 'n') + "\r\n", 0, 1, 1048576, "", 127},
      {"150 x", unixLine + std::string(300, 'n') + "\r\n", 0, 0, 0, "", 0},
      {"150 x", "%s%n 03-03 99999999999 big\r\n", 0, 1, INT32_MAX, "big", 3},
      {"150 x", "drwx\r\n", 0, 1, 0, "", 0},
      {"150 x", "", 0, 0, 0, "", 0},
      {"150 x", "stall", 0, 0, 0, "", 0},
      {"550 x", "", 0, 7, 0, "", 0},
      {"425 x", "", -1, 7, 0, "", 0}};
  for (const auto& [reply, listing, result, count, size, name, nameLen] : cases)
  {
    Session session(Answers{{"LIST", reply}, {"listing", listing}}, "a", "s");
    ASSERT_EQ(session.client.FtpStart(), 0);
    session.state.list_count = 7;
    session.state.list_entries[0].size = 1;
    const auto& entry = session.state.list_entries[0];
    EXPECT_EQ(session.client.FtpGetServerDirFile(), result) << listing;
    EXPECT_EQ(session.state.list_count, count) << listing;
    EXPECT_EQ(entry.size, size) << listing;
    EXPECT_EQ(entry.name, name);
    EXPECT_EQ(entry.name_len, nameLen);
    EXPECT_EQ(was_logged("2:****** ftp datafd ack over time\n"), listing == "stall");
    EXPECT_NE(session.Commands().find("TYPE I|PASV|LIST /a/s/f.bin|"), std::string::npos);
  }
}

TEST(FtpClient, StartsTransfersFreshAndResumed)
{
  const std::tuple<int, int, const char*, const char*, int, const char*, const char*> cases[] = {
      {0, 0, "-", "", 0, "PASV|STOR f.bin|", ""},
      {1, 2, "-", "", 0, "PASV|RETR f.bin|", ""},
      {0, 1, "-", "", 0, "PASV|APPE f.bin|", ""},
      {1, 1, "-", "", 0, "PASV|REST 0|RETR f.bin|", ""},
      {1, 1, "REST", "501 no", -1, "PASV|REST 0|", "2:501 no: Unrecognised error 501\n"},
      {0, 1, "PASV", "227 x", -1, "PASV|", ""},
      {1, 0, "RETR", "500 x", -1, "PASV|RETR f.bin|", "2:Server doesn't understand STOR command\n"},
      {0, 0, "STOR", "553 x", -1, "PASV|STOR f.bin|", "2:Permission denied to upload \"f.bin\"\n"},
      {0, 0, "STOR", "226 x", -1, "PASV|STOR f.bin|", "2:STOR Unrecognised error 226\n"},
      {0, 0, "STOR", "", -1, "PASV|STOR f.bin|", "2:STOR Unrecognised error 0\n"}};
  for (const auto& [download, resume, verb, answer, result, commands, log] : cases)
  {
    Session session(Answers{{"listing", "stall"}, {verb, answer}}, "", "", download);
    ASSERT_EQ(session.client.FtpStart(), 0);
    session.Commands();
    EXPECT_EQ(session.client.FtpCreateDateSockFd(resume, 0), result) << commands;
    EXPECT_EQ(session.Commands(), commands);
    EXPECT_TRUE(was_logged(log)) << logged;
  }
}

TEST(FtpClient, EndsWritesAndReadsInTimeWhateverThePeerAndSignalsDo)
{
  const std::vector<char> block(8 << 20);
  CFtpClient client;
  int pipes[2];
  ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
  SocketPair stalled;
  char byte = '\0';
  const auto start = std::chrono::steady_clock::now();
  const auto write = [&](int fd)
  {
    EXPECT_EQ(CFtpClient().FtpWriteDate(fd, block.data(), static_cast<unsigned int>(block.size()), 1), -1);
  };
  std::thread toSocket(write, stalled.ends[0]);
  std::thread toPipe(write, pipes[1]);
  {
    client.Init(log_text);
    logged.clear();
    const SignalStorm storm;
    EXPECT_EQ(client.FtpReadDate(stalled.ends[0], &byte, 1, 1), -1);
    EXPECT_TRUE(was_logged("1:select interupted!"));
    EXPECT_TRUE(was_logged("1:read error or timeout err"));
  }
  toSocket.join();
  toPipe.join();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took.count(), 0.99);
  EXPECT_LT(took.count(), 5);
  close(pipes[0]);
  close(stalled.ends[1]);
  EXPECT_EQ(client.FtpWriteDate(pipes[1], "x", 1, 1), -1);
  EXPECT_EQ(client.FtpWriteDate(stalled.ends[0], "x", 1, 1), -1);
  SocketPair ended;
  close(ended.ends[1]);
  EXPECT_EQ(client.FtpReadDate(ended.ends[0], &byte, 1, 1), 0);
  EXPECT_EQ(client.FtpCloseSockFd(ended.ends[0]), 0);
  EXPECT_EQ(client.FtpReadDate(0, &byte, 1, 1), -1);
  EXPECT_EQ(client.FtpCloseSockFd(pipes[1]), 0);
  EXPECT_EQ(client.FtpWriteDate(pipes[1], "x", 1, 1), -1);
  close(stalled.ends[0]);
}

} // namespace
