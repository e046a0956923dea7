#pragma once

#include "support/process.h"

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// What a program has said by its end.
struct Answer
{
  std::string output;
  std::string errors;
  int status;
};

inline Answer run(const std::vector<std::string>& words)
{
  Process process(words);
  const std::string output = process.read_until(1);
  return {output, process.read_until(2), process.wait()};
}

inline Answer recorderctl(int port, std::vector<std::string> words)
{
  words.insert(words.begin(), "--port=" + std::to_string(port));
  return run(command(DEVCOMM_RECORDERCTL, words));
}

inline std::string contents(const std::string& path)
{
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
