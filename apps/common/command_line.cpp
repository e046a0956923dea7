#include "command_line.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

CommandLine::CommandLine(const char* program) : program_(program) {}

void CommandLine::number(const char* name, int min, int max, int& value)
{
  options_.push_back({name, nullptr, nullptr, &value, min, max});
}

void CommandLine::text(const char* name, const char* what, const char*& value)
{
  options_.push_back({name, what, &value, nullptr, 0, 0});
}

bool CommandLine::parse(int argc, char** argv, int maxWords)
{
  for (int i = 1; i < argc; ++i)
  {
    const Option* option = find(argv[i]);
    if (option != nullptr)
    {
      const char* value = argv[i] + strlen(option->name);
      if (*value == '=')
        ++value;
      else if (++i < argc)
        value = argv[i];
      else
      {
        fprintf(stderr, "%s: %s needs a value\n", program_, option->name);
        return false;
      }
      if (!set(*option, value))
        return false;
    }
    else if (strcmp(argv[i], "--help") == 0)
      help_ = true;
    else if (strncmp(argv[i], "--", 2) != 0 && static_cast<int>(words_.size()) < maxWords)
      words_.push_back(argv[i]);
    else
    {
      fprintf(stderr, "%s: unknown argument '%s' (see --help)\n", program_, argv[i]);
      return false;
    }
  }
  return true;
}

// The option that argument names, alone or before '='; null when there is none.
const CommandLine::Option* CommandLine::find(const char* argument) const
{
  for (const Option& option : options_)
  {
    const size_t length = strlen(option.name);
    if (strncmp(argument, option.name, length) == 0 && (argument[length] == '\0' || argument[length] == '='))
      return &option;
  }
  return nullptr;
}

bool CommandLine::set(const Option& option, const char* value) const
{
  if (option.number != nullptr)
    return set_number(option, value);
  if (*value == '\0')
  {
    fprintf(stderr, "%s: %s needs %s\n", program_, option.name, option.what);
    return false;
  }
  *option.text = value;
  return true;
}

bool CommandLine::set_number(const Option& option, const char* value) const
{
  char* end = nullptr;
  errno = 0;
  const long number = strtol(value, &end, 10);
  const bool digitsOnly = *value >= '0' && *value <= '9' && *end == '\0';
  if (!digitsOnly || errno != 0 || number < option.min || number > option.max)
  {
    fprintf(stderr, "%s: %s needs a number from %d to %d, not '%s'\n", program_, option.name, option.min,
            option.max, value);
    return false;
  }
  *option.number = static_cast<int>(number);
  return true;
}
