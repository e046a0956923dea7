#pragma once

#include <unistd.h>

#include <string>
#include <vector>

/// How a server of the distribution is started.
struct PeerSetup
{
  std::string missing;                // why it cannot run here; empty when it can
  std::vector<std::string> arguments; // for a ServerProcess
  const char* user = "";              // whom it serves, where it asks
  const char* password = "";
};

/// Sets a server up to serve from a scratch folder.
using SetUpPeer = PeerSetup (*)(const std::string& scratch, int port);

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
