#pragma once

#include <unistd.h>

#include <string>

/// A program's place: unpacked for the tests, or installed.
inline std::string peer_program(const std::string& path)
{
  const std::string unpacked = DEVCOMM_SOURCE_DIR "/build/peers" + path;
  return access(unpacked.c_str(), X_OK) == 0 ? unpacked : path;
}

/// Why a program cannot run here; empty when it can.
inline std::string missing_program(const std::string& program)
{
  return access(program.c_str(), X_OK) == 0 ? "" : program + " is not installed";
}
