#include <devcomm/net_interface.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr char kDeviceList[] = "/proc/net/dev";
constexpr int kHeadingLines = 2;
constexpr size_t kLineSize = 512;
constexpr int kCounters = 16;

static_assert(sizeof(IfrRtInfo_t) == 12 + kCounters * sizeof(uint32_t), "layout");

// Calls visit with the name of each interface until it returns true.
// 0 when it did, 1 when none was left; -1 after a message when there is no list.
template <typename Visit>
int find_interface(Visit visit)
{
  FILE* file = fopen(kDeviceList, "re");
  if (file == nullptr)
  {
    puts("open proc file error");
    return -1;
  }
  char line[kLineSize];
  int result = 1;
  for (int number = 0; result != 0 && fgets(line, sizeof line, file) != nullptr; number++)
  {
    char* colon = strrchr(line, ':');
    if (number < kHeadingLines || colon == nullptr)
      continue;
    *colon = '\0';
    if (visit(line + strspn(line, " \t")))
      result = 0;
  }
  fclose(file);
  return result;
}

void fill(IfrRtInfo_t* info, const char* name, const char* numbers)
{
  uint32_t counters[kCounters] = {};
  char* at = const_cast<char*>(numbers);
  for (uint32_t& counter : counters)
    counter = static_cast<uint32_t>(strtoull(at, &at, 10));
  snprintf(info->name, sizeof info->name, "%.11s", name);
  memcpy(reinterpret_cast<char*>(info) + offsetof(IfrRtInfo_t, rx_bytes), counters, sizeof counters);
}

} // namespace

int CheckNetIf(const char* ifname)
{
  if (ifname == nullptr)
    return -1;
  return find_interface([ifname](const char* name) { return strcmp(name, ifname) == 0; });
}

int CheckIPInRange(const char* ifname, unsigned int ip)
{
  if (ifname == nullptr)
    return -1;
  const auto shares_network = [ifname, ip](const char* name)
  {
    unsigned int other = 0;
    return strcmp(name, ifname) != 0 && GetIpAddr(name, &other) == 0 && (other ^ ip) >> 8 == 0;
  };
  return find_interface(shares_network) == 0 ? 0 : -1;
}

int GetIfrInfo(const char* ifname, IfrRtInfo_t* out)
{
  if (ifname == nullptr || *ifname == '\0' || out == nullptr)
    return -1;
  FILE* file = fopen(kDeviceList, "re");
  if (file == nullptr)
    return -1;
  char line[kLineSize];
  int result = -1;
  while (result != 0 && fgets(line, sizeof line, file) != nullptr)
  {
    char* colon = strchr(line, ':');
    if (colon == nullptr || strstr(line, ifname) == nullptr)
      continue;
    *out = {};
    *colon = '\0';
    if (strstr(line, ifname) == nullptr)
      continue; // it was among the numbers
    fill(out, line, colon + 1);
    result = 0;
  }
  fclose(file);
  return result;
}

int GetInterfaceStatus(const char* ifname)
{
  struct Carrier
  {
    const char* prefix;
    const char* path;
  };
  constexpr Carrier kCarriers[] = {
      {"eth0", "/sys/class/net/eth0/carrier"},
      {"eth1", "/sys/class/net/eth1/carrier"},
      {"ra0", "/sys/class/net/ra0/carrier"},
      {"ppp0", "/sys/class/net/ppp0/carrier"},
      {"wlan", "/sys/class/net/wlan0/carrier"}}; // of every wlan: callers rely on it
  const char* path = nullptr;
  for (const Carrier& carrier : kCarriers)
  {
    if (ifname != nullptr && strncmp(ifname, carrier.prefix, strlen(carrier.prefix)) == 0)
      path = carrier.path;
  }
  FILE* file = path != nullptr ? fopen(path, "re") : nullptr;
  if (file == nullptr)
    return -1;
  char line[8];
  const bool read = fgets(line, sizeof line, file) != nullptr; // fails while the interface is down
  fclose(file);
  if (!read)
    return -1;
  return memchr(line, '1', strnlen(line, 4)) != nullptr ? 1 : 0;
}
