#include "status_announcer.h"

#include <devcomm/socket.h>

#include <cstring>

namespace
{

constexpr char kLoopbackBroadcast[] = "127.255.255.255";

} // namespace

StatusAnnouncer::StatusAnnouncer() : client_(UdpClientInit()) {}

StatusAnnouncer::~StatusAnnouncer()
{
  UdpClientUninit(client_);
}

bool StatusAnnouncer::start(int port)
{
  sockaddr_in peer = {};
  const int sock = udp_broadcast_init(0, nullptr);
  if (client_ == nullptr || sock < 0 || net_make_addr(kLoopbackBroadcast, port, &peer) != 0)
    return false;
  const auto ignore = [](SERVICE_STATE_E, const char*, int length, udp_client_st*, void*)
  {
    return length;
  };
  started_ = UdpClientStart(client_, sock, peer, ignore, nullptr) == 0;
  return started_;
}

void StatusAnnouncer::announce(const char* text)
{
  if (started_ && UdpClientGetSendBufSize(client_) == 0)
    UdpClientSendData(client_, text, static_cast<int>(strlen(text)));
}
