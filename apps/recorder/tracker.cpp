#include "tracker.h"

#include "fences.h"

#include <cstring>

Tracker::Tracker(PositionBoard& board, EventBus& events) : board_(board), events_(events) {}

void Tracker::subscribe(PositionSink& sink)
{
  sinks_.push_back(&sink);
}

void Tracker::moved(Position position)
{
  const Position before = board_.newest();
  if (position.fix == 0)
  {
    const int64_t time = position.time;
    position = before;
    position.time = time;
    position.fix = 0;
  }
  else
    position.fence = fence_at(position.lat, position.lon);
  hand_out(position);

  if (strcmp(position.fence, before.fence) == 0)
    return;
  if (*before.fence != '\0')
    events_.publish("leave", before.fence);
  if (*position.fence != '\0')
    events_.publish("enter", position.fence);
}

void Tracker::lost()
{
  Position position = board_.newest();
  if (position.fix == 0)
    return;
  position.fix = 0;
  hand_out(position);
}

void Tracker::hand_out(const Position& position)
{
  board_.post(position);
  for (PositionSink* sink : sinks_)
    sink->on_position(position);
}
