#include "event_bus.h"

#include "clock.h"

EventBus::EventBus(const PositionBoard& positions) : positions_(positions) {}

void EventBus::subscribe(EventSink& sink)
{
  const CAutoLock guard(&lock_);
  sinks_.push_back(&sink);
}

void EventBus::publish(const char* kind, const char* text)
{
  const Event event = {wall_clock_us(), kind, text, positions_.newest()};
  const CAutoLock guard(&lock_);
  for (EventSink* sink : sinks_)
    sink->on_event(event);
}
