#pragma once

#include "event_bus.h"

/// Prints a line on standard output for each event.
class EventPrinter : public EventSink
{
public:
  void on_event(const Event& event) override;
};
