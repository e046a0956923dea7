#pragma once

#include "route.h"
#include "sentence_sender.h"

/// A receiver on the simulated drive: GGA, GSA, GSV, RMC and VTG (NMEA 0183) with the time of now.
class SimulatedReceiver : public SentenceSender
{
public:
  /// @param rate  positions a second, 1 to 10
  explicit SimulatedReceiver(int rate);

private:
  void play() override;
  void send_position(const RoutePoint& at) const;

  int rate_;
};
