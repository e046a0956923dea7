#pragma once

#include "support/process.h"
#include "support/scratch_folder.h"

#include <devcomm/nmea.h>

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

/// A receiver's sentence with its sum and end.
inline std::string sentence(const std::string& body)
{
  char text[256];
  return {text, static_cast<size_t>(nmea_printf(text, sizeof text, "$%s", body.c_str()))};
}

inline Answer recorderctl(int port, const std::vector<std::string>& words)
{
  return run(command(DEVCOMM_RECORDERCTL, {"--port=" + std::to_string(port)}, words));
}
