// Talks to a running recorder over Unix-domain messages.

#include "command_line.h"
#include "control_path.h"

#include <devcomm/unix_domain.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

namespace
{

constexpr int kPatienceSeconds = 5;

constexpr char kUsage[] =
    "Usage: recorderctl [--port N] status|stop|mark TEXT\n"
    "\n"
    "Asks the recorder that serves video on port N (default 9554), and prints its answer.\n"
    "\n"
    "  status      how it is doing, in one line\n"
    "  stop        ends it\n"
    "  mark TEXT   makes an event of the text\n"
    "  --help      print this and stop\n";

// The request as the recorder takes it; empty when the words are none.
std::string request_of(const std::vector<char*>& words)
{
  std::string request;
  for (const char* word : words)
    request.append(request.empty() ? "" : " ").append(word);
  const bool mark = words.size() > 1 && strcmp(words[0], "mark") == 0;
  const bool known = mark || request == "status" || request == "stop";
  return known && request.size() < kControlBytes ? request : "";
}

// @return exit status
int ask(int port, std::string request)
{
  char path[256];
  control_path(port, path, sizeof path);
  char answer[kControlBytes];
  int length = sizeof answer;
  if (SendUnixDomainDataToName(request.data(), static_cast<int>(request.size()), path, kPatienceSeconds, 0, 1,
                               answer, &length) != 0)
  {
    fprintf(stderr, "recorderctl: no answer from a recorder on port %d\n", port);
    return 1;
  }
  printf("%.*s\n", length, answer);
  return 0;
}

} // namespace

int main(int argc, char** argv)
{
  int port = 9554;
  CommandLine line("recorderctl");
  line.number("--port", 1, 65535, port);
  if (!line.parse(argc, argv, INT_MAX))
    return 2;
  if (line.help())
  {
    fputs(kUsage, stdout);
    return 0;
  }
  const std::string request = request_of(line.words());
  if (request.empty())
  {
    fputs("recorderctl: needs status, stop or mark TEXT (see --help)\n", stderr);
    return 2;
  }
  return ask(port, request);
}
