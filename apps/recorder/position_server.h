#pragma once

#include "position.h"

#include <devcomm/tcp_service.h>

#include <cstdint>

/// Sends the position as RMC sentences (NMEA 0183) to every TCP peer, one for each second of the receiver's time.
/// What peers send is ignored; one that takes nothing for a minute is disconnected.
class PositionServer : public PositionSink
{
public:
  PositionServer();

  /// Call stop() first.
  ~PositionServer() override;

  /// Listens on port on all addresses. @return false when that fails
  bool start(int port);

  /// Asks the listening to end, without waiting, so that several servers can end at a time. stop() is still to be
  /// called.
  void ask_stop();

  /// Stops listening and ends the connections. @return false when a connection still runs
  bool stop();

  void on_position(const Position& position) override;

private:
  static int on_event(SERVICE_STATE_E state, const char* data, int len, tcp_server_st* server,
                      tcp_client_st* client, void* arg);

  tcp_server_st* server_;
  bool listening_ = false;
  int64_t sentTime_ = 0;
};
