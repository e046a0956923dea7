#pragma once

#include <devcomm/ftp_client.h>

/// What the command line asks for.
struct Options
{
  int port = 9554;                      ///< TCP port that viewers connect to, 1 to 65535
  const char* input = nullptr;          ///< file or pipe, "-" for standard input; null for the built-in clip
  const char* gps = nullptr;            ///< a receiver's device or log; null for the simulated receiver
  int gpsBaud = 9600;                   ///< rate of the device
  int gpsRate = 5;                      ///< positions a second of the simulated receiver, 1 to 10
  int gpsPort = 9555;                   ///< TCP port that serves the position, 1 to 65535
  int ring = 0;                         ///< key of the shared-memory ring that gets the frames; 0: none
  int announce = 0;                     ///< UDP port that the status is announced on; 0: not at all
  const char* data = nullptr;           ///< directory for events and track; null keeps none
  const char* upload = nullptr;         ///< FTP server that gets what the outbox in data holds; null for none
  UserDefServerSet_t uploadTarget = {}; ///< the same, read; only if upload is given
  int seconds = 0;                      ///< stop by itself after this time; 0 runs until a signal
  bool help = false;                    ///< --help was given: nothing else counts
};

/// Reads the command line: "--name value" or "--name=value".
///
/// @param argv  as given to main; the strings stay in use for as long as the options
/// @return true when it is right; otherwise one line on standard error says what is wrong
bool parse_options(int argc, char** argv, Options& options);

/// What --help prints.
extern const char* const kUsage;
