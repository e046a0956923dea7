#pragma once

#include "journal.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// The directory of what is to be sent to a server: every file in it is whole, save those named .part, which are
/// still being written. Names begin with the time (UTC), so that they sort by age. Any thread.
class Outbox
{
public:
  /// Makes DATA/outbox, and removes what an earlier run has left half written.
  /// @return false when that fails: one line on standard error has said so
  bool open(const std::string& data);

  bool is_open() const
  {
    return !dir_.empty();
  }

  /// Adds a file. @param name  what its name is to end with; receives the name
  /// @return false when it cannot be written, or kMaxFiles are waiting
  bool put(const std::vector<uint8_t>& bytes, std::string& name);

  /// Adds a file of the events that wait in the journal, if there are any and no file of events waits already: while
  /// no server takes that one, the next are better kept in the journal. One thread at a time.
  void put_events(Journal& journal);

  /// Names of the whole files, oldest first.
  std::vector<std::string> files() const;

  std::string path(const std::string& name) const
  {
    return dir_ + name;
  }

  void remove(const std::string& name);

  /// So that a recorder that reaches no server does not fill its disk: nothing that waits is ever given up for
  /// something newer.
  static constexpr size_t kMaxFiles = 64;

private:
  std::string dir_; // with a slash; empty when there is none
};
