#include "event_printer.h"

#include <devcomm/time_process.h>

#include <cstdio>

void EventPrinter::on_event(const Event& event)
{
  char time[32];
  strftime_r(time, sizeof time, static_cast<long>(event.timeUs / 1000000));
  printf("event %s %s: %s (%.5f, %.5f)\n", time, event.kind, event.text, event.position.lat,
         event.position.lon);
}
