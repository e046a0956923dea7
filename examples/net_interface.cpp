// Shows how the device is connected: each interface's address, gateway and traffic.

#include <devcomm/net_interface.h>

#include <cstdio>

int main()
{
  const char* const names[] = {"lo", "eth0", "eth1", "wlan0", "ppp0"};
  for (const char* name : names)
  {
    unsigned int ip = 0;
    unsigned int gateway = 0;
    char ip_text[16];
    char gateway_text[16];
    IfrRtInfo_t counters = {};
    if (CheckNetIf(name) != 0 || GetIpAddr(name, &ip) != 0)
      continue;
    GetGateway(name, &gateway);
    GetIfrInfo(name, &counters);
    printf("%-6s %-15s gateway %-15s received %u bytes, sent %u\n", name,
           IntIP2String(ip, ip_text, sizeof ip_text),
           gateway != 0 ? IntIP2String(gateway, gateway_text, sizeof gateway_text) : "none",
           counters.rx_bytes, counters.tx_bytes);
  }
  return CheckNetIf("lo");
}
