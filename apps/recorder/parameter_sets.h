#pragma once

#include "annexb_splitter.h"

#include <vector>

/// Remembers the stream's parameter sets and puts them into key frames that come without: many encoders send them
/// only once, and a viewer that joins later cannot decode without them. Not for use by several threads at once.
class ParameterSets
{
public:
  /// Learns from a unit, and completes it if need be.
  ///
  /// @param limit  bytes; a unit that would become larger stays as it is
  /// @return the unit itself, or one that is valid until the next call
  AccessUnit complete(const AccessUnit& unit, size_t limit);

private:
  std::vector<uint8_t> sets_; // NAL units of the last access unit that had a sequence parameter set
  std::vector<uint8_t> completed_;
};
