#include "options.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

const char* const kUsage = "Usage: recorder [--port N] [--input FILE|-] [--seconds N] [--help]\n"
                           "\n"
                           "Streams H.264 video to every viewer that connects by TCP.\n"
                           "\n"
                           "  --port N        port for viewers, 1 to 65535 (default 9554)\n"
                           "  --input FILE|-  an H.264 Annex B byte stream: a file (played in a loop at its "
                           "own frame rate), a pipe, or\n"
                           "                  - for standard input (passed on as it arrives, until it ends); "
                           "default: a built-in clip\n"
                           "  --seconds N     stop after N seconds (default: run until SIGINT or SIGTERM)\n"
                           "  --help          print this and stop\n"
                           "\n"
                           "Watch it with:  ffplay -f h264 tcp://127.0.0.1:9554\n"
                           "\n"
                           "One status line a second: frames and key frames read, viewers connected, bytes "
                           "queued for viewers, and frames\n"
                           "dropped because a viewer was too slow or a frame too large.\n";

namespace
{

bool parse_number(const char* name, const char* text, int max, int& out)
{
  char* end = nullptr;
  errno = 0;
  const long value = strtol(text, &end, 10);
  const bool digitsOnly = *text >= '0' && *text <= '9' && *end == '\0';
  if (!digitsOnly || errno != 0 || value < 1 || value > max)
  {
    fprintf(stderr, "recorder: %s needs a number from 1 to %d, not '%s'\n", name, max, text);
    return false;
  }
  out = static_cast<int>(value);
  return true;
}

bool set_option(const char* name, const char* value, Options& options)
{
  if (strcmp(name, "--port") == 0)
    return parse_number(name, value, 65535, options.port);
  if (strcmp(name, "--seconds") == 0)
    return parse_number(name, value, INT_MAX, options.seconds);
  if (*value == '\0')
  {
    fprintf(stderr, "recorder: --input needs a file name or -\n");
    return false;
  }
  options.input = value;
  return true;
}

// The known option that argument names, alone or before '='; null when there is none.
const char* match_option(const char* argument)
{
  for (const char* name : {"--port", "--input", "--seconds"})
  {
    const size_t length = strlen(name);
    if (strncmp(argument, name, length) == 0 && (argument[length] == '\0' || argument[length] == '='))
      return name;
  }
  return nullptr;
}

} // namespace

bool parse_options(int argc, char** argv, Options& options)
{
  for (int i = 1; i < argc; ++i)
  {
    if (strcmp(argv[i], "--help") == 0)
    {
      options.help = true;
      continue;
    }
    const char* name = match_option(argv[i]);
    if (name == nullptr)
    {
      fprintf(stderr, "recorder: unknown argument '%s' (see --help)\n", argv[i]);
      return false;
    }
    const char* value = argv[i] + strlen(name);
    if (*value == '=')
      ++value;
    else if (++i < argc)
      value = argv[i];
    else
    {
      fprintf(stderr, "recorder: %s needs a value\n", name);
      return false;
    }
    if (!set_option(name, value, options))
      return false;
  }
  return true;
}
