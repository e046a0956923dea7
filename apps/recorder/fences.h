#pragma once

/// Tells which of the recorder's geofences a place is in.
///
/// @param lat,lon  degrees
/// @return a name of static life; empty outside of all
const char* fence_at(double lat, double lon);
