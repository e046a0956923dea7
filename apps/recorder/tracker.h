#pragma once

#include "event_bus.h"
#include "position.h"

#include <vector>

/// Follows the recorder on its way: posts each position on the board, hands it to all who want it, and tells of
/// geofences entered and left. Not for use by several threads at once.
class Tracker
{
public:
  /// Both must outlive the tracker.
  Tracker(PositionBoard& board, EventBus& events);

  /// Adds a sink, which must outlive the tracker. Before the first position.
  void subscribe(PositionSink& sink);

  /// Takes the next position; its fence is found out here. Without a fix the recorder counts as being where it
  /// was last.
  void moved(Position position);

  /// The receiver has fallen silent.
  void lost();

private:
  void hand_out(const Position& position);

  PositionBoard& board_;
  EventBus& events_;
  std::vector<PositionSink*> sinks_;
};
