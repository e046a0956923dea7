#pragma once

#include <vector>

/// Reads a command line of "--name value" or "--name=value" into variables. What is wrong is said in one line on
/// standard error. Strings stay in use: names for as long as the object, values for as long as the variables.
class CommandLine
{
public:
  /// @param program  its name, for messages
  explicit CommandLine(const char* program);

  /// Adds an option for a whole number from min to max.
  void number(const char* name, int min, int max, int& value);

  /// Adds an option for a text that is not empty. @param what  what it needs, for the message
  void text(const char* name, const char* what, const char*& value);

  /// Reads all arguments; those that are no options are kept in order. "--help" sets help() and counts as right.
  ///
  /// @param maxWords  arguments allowed that are no options
  /// @return whether it is right
  bool parse(int argc, char** argv, int maxWords);

  bool help() const
  {
    return help_;
  }

  const std::vector<char*>& words() const
  {
    return words_;
  }

private:
  struct Option
  {
    const char* name;
    const char* what;  // null for a number
    const char** text; // of a text
    int* number;       // of a number
    int min;
    int max;
  };

  const Option* find(const char* argument) const;
  bool set(const Option& option, const char* value) const;
  bool set_number(const Option& option, const char* value) const;

  const char* program_;
  std::vector<Option> options_;
  std::vector<char*> words_;
  bool help_ = false;
};
