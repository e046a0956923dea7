#include <devcomm/net_interface.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int kNullArgument = -2;

// What the kernel is asked about one interface, through a socket of its own.
class Request
{
public:
  explicit Request(const char* ifname)
      : m_ifr(), m_sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_named(false)
  {
    const size_t length = strlen(ifname);
    m_named = length < sizeof m_ifr.ifr_name;
    memcpy(m_ifr.ifr_name, ifname, m_named ? length : 0);
  }
  ~Request()
  {
    if (m_sock >= 0)
      close(m_sock);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  bool opened() const
  {
    return m_sock >= 0;
  }

  // False with errno. No interface has a longer name, and a cut one would be another's.
  bool issue(unsigned long code)
  {
    if (!m_named)
      errno = ENODEV;
    return m_named && ioctl(m_sock, code, &m_ifr) == 0;
  }

  void set_address(unsigned int address)
  {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(address);
    memcpy(&m_ifr.ifr_addr, &in, sizeof in);
  }

  unsigned int address() const
  {
    sockaddr_in in = {};
    memcpy(&in, &m_ifr.ifr_addr, sizeof in);
    return ntohl(in.sin_addr.s_addr);
  }

  short& flags()
  {
    return m_ifr.ifr_flags;
  }

  const unsigned char* hardware_address() const
  {
    return reinterpret_cast<const unsigned char*>(m_ifr.ifr_hwaddr.sa_data);
  }

private:
  ifreq m_ifr;
  int m_sock;
  bool m_named;
};

// The operation's name stands in front; without one nothing is printed.
int failed(const char* operation, const char* call)
{
  if (operation != nullptr)
    printf("%s call %s failed(%s)", operation, call, strerror(errno));
  return -1;
}

int get_address(const char* ifname, unsigned long code, unsigned int* address, const char* operation)
{
  if (ifname == nullptr || address == nullptr)
    return kNullArgument;
  Request request(ifname);
  if (!request.opened())
    return failed(operation, "socket");
  if (!request.issue(code))
    return failed(operation, "ioctl");
  *address = request.address();
  return 0;
}

int set_address(const char* ifname, unsigned long code, unsigned int address, const char* operation)
{
  if (ifname == nullptr)
    return kNullArgument;
  Request request(ifname);
  if (!request.opened())
    return failed(operation, "socket");
  request.set_address(address);
  return request.issue(code) ? 0 : failed(operation, "ioctl");
}

int set_up(const char* ifname, bool up, const char* operation)
{
  if (ifname == nullptr)
    return kNullArgument;
  Request request(ifname);
  if (!request.opened())
    return failed(operation, "socket");
  if (!request.issue(SIOCGIFFLAGS))
    return failed(operation, "ioctl");
  const int others = request.flags() & ~IFF_UP;
  request.flags() = static_cast<short>(up ? others | IFF_UP : others);
  return request.issue(SIOCSIFFLAGS) ? 0 : failed(operation, "ioctl");
}

} // namespace

int GetIpAddr(const char* ifname, unsigned int* ip)
{
  return get_address(ifname, SIOCGIFADDR, ip, nullptr);
}

int SetIpAddr(const char* ifname, unsigned int ip)
{
  return set_address(ifname, SIOCSIFADDR, ip, "SetIpAddr");
}

int GetNetmask(const char* ifname, unsigned int* mask)
{
  return get_address(ifname, SIOCGIFNETMASK, mask, "GetNetmask");
}

int SetNetmask(const char* ifname, unsigned int mask)
{
  return set_address(ifname, SIOCSIFNETMASK, mask, "SetNetmask");
}

int NetIfUp(const char* ifname)
{
  return set_up(ifname, true, "InterfaceUp");
}

int NetIfDown(const char* ifname)
{
  return set_up(ifname, false, "InterfaceDown");
}

int GetMac(const char* ifname, char* out)
{
  if (ifname == nullptr || out == nullptr)
    return -1;
  Request request(ifname);
  if (!request.opened())
  {
    perror("socket");
    return -1;
  }
  if (!request.issue(SIOCGIFHWADDR))
  {
    perror("ioctl");
    return -1;
  }
  const unsigned char* mac = request.hardware_address();
  sprintf(out, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return 0;
}

char* IntIP2String(unsigned int ip, char* buf, int len)
{
  const in_addr address = {htonl(ip)};
  if (buf == nullptr || len < 1 || inet_ntop(AF_INET, &address, buf, static_cast<socklen_t>(len)) == nullptr)
    return nullptr;
  return buf;
}
