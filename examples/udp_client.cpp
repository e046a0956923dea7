// Two UDP services on loopback: one says something, the other hears it.
#include <devcomm/socket.h>
#include <devcomm/udp_client.h>

#include <atomic>
#include <cstdio>

#include <unistd.h>

namespace
{

std::atomic<bool> isHeard{false};

// On each service's own thread.
int on_event(SERVICE_STATE_E state, const char* data, int len, udp_client_st*, void* arg)
{
  if (state == SERVICE_STATE_RECV)
  {
    printf("%s heard: %.*s\n", static_cast<const char*>(arg), len, data);
    isHeard = true;
  }
  return len; // everything received is consumed
}

} // namespace

int main()
{
  const int hearing = udp_unicast_init(0, nullptr); // any free port
  sockaddr_in there{};
  socklen_t size = sizeof there;
  getsockname(hearing, reinterpret_cast<sockaddr*>(&there), &size);
  net_make_addr("127.0.0.1", ntohs(there.sin_port), &there);

  char left[] = "left";
  char right[] = "right";
  udp_client_st* hears = UdpClientInit();
  udp_client_st* speaks = UdpClientInit();
  if (UdpClientStart(hears, hearing, sockaddr_in{}, on_event, right) == 0 &&
      UdpClientStart(speaks, udp_unicast_init(-1, nullptr), there, on_event, left) == 0)
  {
    UdpClientSendData(speaks, "hello, ", 7);
    UdpClientSendData(speaks, "world", 5); // most likely in the same datagram
    for (int i = 0; i < 5000 && !isHeard; ++i)
    {
      usleep(1000);
    }
  }
  UdpClientUninit(speaks);
  UdpClientUninit(hears);
  return isHeard ? 0 : 1;
}
