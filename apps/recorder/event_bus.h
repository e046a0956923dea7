#pragma once

#include "position.h"

#include <devcomm/lock.h>

#include <cstdint>
#include <vector>

/// Something worth remembering.
struct Event
{
  int64_t timeUs;    ///< microseconds since 1970, UTC
  const char* kind;  ///< a word: enter, leave, mark, ...
  const char* text;  ///< of any length, without a line end
  Position position; ///< the newest when it happened
};

/// Whoever wants to know of events.
class EventSink
{
public:
  EventSink() = default;
  virtual ~EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;

  /// Called on the thread in which the event happened, one event at a time; it must not take long, nor publish.
  /// What the event points to lives until it returns.
  virtual void on_event(const Event& event) = 0;
};

/// Brings events from where they happen to all who want to know.
class EventBus
{
public:
  /// @param positions  must outlive the bus
  explicit EventBus(const PositionBoard& positions);

  /// Adds a sink, which must outlive the bus's last event. Sinks hear of events in the order they were added.
  void subscribe(EventSink& sink);

  /// Tells all sinks, with the time and the position of now. Any thread.
  void publish(const char* kind, const char* text);

private:
  const PositionBoard& positions_;
  CLock lock_; // around the sinks: they hear of one event after the other
  std::vector<EventSink*> sinks_;
};
