#pragma once

#include <devcomm/lock.h>

#include <cstdint>

/// Where the recorder is, as far as its receiver knows.
struct Position
{
  int64_t time = 0;       ///< seconds since 1970, UTC, of the receiver; 0 before its first word
  int fix = 0;            ///< 0 none, 2 two-dimensional, 3 three-dimensional
  double lat = 0;         ///< degrees, north positive; without a fix this and the rest are the last known
  double lon = 0;         ///< degrees, east positive
  double speed = 0;       ///< km/h
  double course = 0;      ///< degrees true, 0 to 360
  const char* fence = ""; ///< name of the geofence it is in, of static life; empty outside of all
};

/// Holds the newest position for whoever asks. Any thread.
class PositionBoard
{
public:
  void post(const Position& position);
  Position newest() const;

private:
  mutable CLock lock_;
  Position position_;
};

/// Whoever wants each position as it comes.
class PositionSink
{
public:
  PositionSink() = default;
  virtual ~PositionSink() = default;
  PositionSink(const PositionSink&) = delete;
  PositionSink& operator=(const PositionSink&) = delete;

  /// Called on the GPS thread, several times a second; it must not take long.
  virtual void on_position(const Position& position) = 0;
};
