#pragma once

#include <devcomm/udp_client.h>

/// Announces the status by UDP broadcast on loopback, to every process that listens on the port. One thread at a time.
class StatusAnnouncer
{
public:
  StatusAnnouncer();

  /// Ends the sending.
  ~StatusAnnouncer();

  StatusAnnouncer(const StatusAnnouncer&) = delete;
  StatusAnnouncer& operator=(const StatusAnnouncer&) = delete;

  /// @return false when there is no socket to be had
  bool start(int port);

  /// Sends the text as one datagram, without a terminator. Nothing is sent before start(), nor while the text before
  /// has not left.
  void announce(const char* text);

private:
  udp_client_st* client_;
  bool started_ = false;
};
