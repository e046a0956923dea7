// Talks to a running recorder over Unix-domain messages.

#include "command_line.h"
#include "control_path.h"
#include "update.h"

#include <devcomm/unix_domain.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

namespace
{

constexpr int kPatienceSeconds = 5;
constexpr char kRefused[] = "no clip: "; // how the recorder says so

constexpr char kUsage[] =
    "Usage: recorderctl [--port N] status|stop|mark TEXT|clip [N]\n"
    "       recorderctl update URL FILE\n"
    "\n"
    "Asks the recorder that serves video on port N (default 9554), and prints its answer.\n"
    "\n"
    "  status      how it is doing, in one line\n"
    "  stop        ends it\n"
    "  mark TEXT   makes an event of the text\n"
    "  clip [N]    makes a clip of the last N key frames, 1 to 15 (default 5), in its outbox, and prints its "
    "name\n"
    "  update URL FILE\n"
    "              needs no recorder: downloads URL by HTTP, compares it with the MD5 at URL.md5, and only "
    "then\n"
    "              gives it the name FILE\n"
    "  --help      print this and stop\n";

// The request as the recorder takes it; empty when the words are none.
std::string request_of(const std::vector<char*>& words)
{
  std::string request;
  for (const char* word : words)
    request.append(request.empty() ? "" : " ").append(word);
  const bool mark = words.size() > 1 && strcmp(words[0], "mark") == 0;
  const bool clip = !words.empty() && words.size() <= 2 && strcmp(words[0], "clip") == 0;
  const bool known = mark || clip || request == "status" || request == "stop";
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
  const std::string text(answer, static_cast<size_t>(std::max(length, 0)));
  if (text.compare(0, strlen(kRefused), kRefused) == 0)
  {
    fprintf(stderr, "recorderctl: %s\n", text.c_str());
    return 1;
  }
  puts(text.c_str());
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
  if (line.words().size() == 3 && strcmp(line.words()[0], "update") == 0)
    return update(line.words()[1], line.words()[2]);
  const std::string request = request_of(line.words());
  if (request.empty())
  {
    fputs("recorderctl: needs status, stop, mark TEXT, clip [N] or update URL FILE (see --help)\n", stderr);
    return 2;
  }
  return ask(port, request);
}
