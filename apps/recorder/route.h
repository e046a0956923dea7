#pragma once

/// One moment of the simulated drive.
struct RoutePoint
{
  double lat;    ///< degrees
  double lon;    ///< degrees
  double course; ///< degrees true, 0 to 360
  bool tunnel;   ///< no satellite is seen
};

/// Speed of the drive, metres a second.
constexpr double kRouteSpeed = 30;

/// The drive: laps of some 12 seconds out of the depot, through the harbour and a tunnel, and back.
///
/// @param seconds  since its start, 0 and more
RoutePoint route_at(double seconds);
