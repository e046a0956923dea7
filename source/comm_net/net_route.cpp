#include <devcomm/net_interface.h>
#include <devcomm/socket.h>

#include <arpa/inet.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <net/route.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kGatewayExLines = 10;
constexpr int kDummyPort = 5678; // names are resolved with a port, which no route has

struct DefaultRoute
{
  char ifname[64];
  unsigned int gateway; // host byte order
};

// Takes a line that is a default route through a gateway. The heading is none, nor is any other route.
bool parse_line(const char* line, DefaultRoute* route)
{
  unsigned long destination = 0;
  unsigned long gateway = 0;
  unsigned long mask = 0;
  unsigned int flags = 0;
  int unused[6];
  const int fields =
      sscanf(line, "%63s%lx%lx%X%d%d%d%lx%d%d%d", route->ifname, &destination, &gateway, &flags, &unused[0],
             &unused[1], &unused[2], &mask, &unused[3], &unused[4], &unused[5]);
  route->gateway = ntohl(static_cast<uint32_t>(gateway));
  return fields == 11 && flags == (RTF_UP | RTF_GATEWAY) && destination == 0 && mask == 0;
}

// The kernel's main table as it was at one moment: routes may be changed while it is walked.
class RouteTable
{
public:
  explicit RouteTable(int lines = INT_MAX)
      : m_text(nullptr), m_rest(nullptr), m_lines(lines), m_readable(false)
  {
    FILE* file = fopen("/proc/net/route", "re");
    if (file == nullptr)
      return;
    size_t size = 0;
    if (getdelim(&m_text, &size, '\0', file) > 0)
      m_rest = m_text;
    m_readable = ferror(file) == 0;
    fclose(file);
  }
  ~RouteTable()
  {
    free(m_text);
  }
  RouteTable(const RouteTable&) = delete;
  RouteTable& operator=(const RouteTable&) = delete;

  bool readable() const
  {
    return m_readable;
  }

  // The next default route, of one interface if it is named. False at the end.
  bool next(DefaultRoute* route, const char* ifname = nullptr)
  {
    while (m_rest != nullptr && m_lines-- > 0)
    {
      const char* line = strsep(&m_rest, "\n");
      if (parse_line(line, route) && (ifname == nullptr || strcmp(route->ifname, ifname) == 0))
        return true;
    }
    return false;
  }

private:
  char* m_text;
  char* m_rest; // null at the end
  int m_lines;  // that may still be looked at
  bool m_readable;
};

// Network byte order; 0 for "default", and after a message for what cannot be resolved.
in_addr_t resolve_gateway(const char* text)
{
  in_addr address = {};
  if (strcmp(text, "default") == 0 || inet_aton(text, &address) != 0)
    return address.s_addr;

  sockaddr_in host = {};
  if (net_make_addr(text, kDummyPort, &host) == 0)
    return host.sin_addr.s_addr;

  netent entry = {};
  netent* network = nullptr;
  char names[1024];
  int error = 0;
  if (getnetbyname_r(text, &entry, names, sizeof names, &network, &error) == 0 && network != nullptr)
    return htonl(network->n_net);

  printf("resolving %s\n", text);
  return 0;
}

void set_address(sockaddr* target, in_addr_t address)
{
  sockaddr_in in = {};
  in.sin_family = AF_INET;
  in.sin_addr.s_addr = address;
  memcpy(target, &in, sizeof in);
}

// Adds or deletes the default route through a gateway; 0 even when the kernel refuses.
int change_route(const char* gateway_text, unsigned long request)
{
  const in_addr_t gateway = resolve_gateway(gateway_text);
  rtentry route = {};
  set_address(&route.rt_dst, 0);
  set_address(&route.rt_genmask, 0);
  set_address(&route.rt_gateway, gateway);
  route.rt_flags = RTF_UP | RTF_GATEWAY;

  const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0)
  {
    puts("set route open socket failed");
    return -1;
  }
  // Without a gateway the kernel adds none either, but deletes whichever default route comes first. One
  // through an IPv6 gateway is listed with none.
  if (gateway == 0 || ioctl(sock, request, &route) != 0)
    puts("SIOC[ADD|DEL]RT");
  close(sock);
  return 0;
}

} // namespace

int GetGateway(const char* ifname, unsigned int* gw)
{
  if (ifname == nullptr || gw == nullptr)
    return -1;
  *gw = 0;
  RouteTable table;
  DefaultRoute route;
  while (table.next(&route, ifname))
    *gw = route.gateway;
  return table.readable() ? 0 : -1;
}

int GetGatewayEx(const char* ifname, unsigned int* gw)
{
  if (ifname == nullptr || gw == nullptr)
    return -1;
  RouteTable table(kGatewayExLines);
  DefaultRoute route;
  if (!table.next(&route, ifname))
    return -1;
  *gw = route.gateway;
  return 0;
}

int GetDefaultGateway(char* ifname_out, char* gw_text_out, unsigned int* gw)
{
  RouteTable table;
  DefaultRoute route;
  if (!table.readable())
    return -1;
  if (!table.next(&route))
    return 0;
  if (ifname_out != nullptr)
    snprintf(ifname_out, IFNAMSIZ, "%.15s", route.ifname);
  if (gw_text_out != nullptr)
  {
    IntIP2String(route.gateway, gw_text_out, INET_ADDRSTRLEN);
    if (gw != nullptr)
      *gw = route.gateway;
  }
  return 1;
}

int SetRoute(char* gw_text)
{
  return gw_text != nullptr ? change_route(gw_text, SIOCADDRT) : -1;
}

int DelRoute(const char* ifname)
{
  if (ifname == nullptr)
    return -1;
  RouteTable table;
  DefaultRoute route;
  char text[INET_ADDRSTRLEN];
  while (table.next(&route, ifname))
    change_route(IntIP2String(route.gateway, text, sizeof text), SIOCDELRT);
  return table.readable() ? 0 : -1;
}

int SetGateway(const char* ifname, unsigned int gw)
{
  if (ifname == nullptr)
    return -2;
  char text[INET_ADDRSTRLEN];
  DelRoute(ifname);
  printf("SetGateway : %s\n", IntIP2String(gw, text, sizeof text));
  change_route(text, SIOCADDRT);
  return 0;
}
