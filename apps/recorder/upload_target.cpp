#include "upload_target.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr char kScheme[] = "ftp://";
constexpr uint16_t kDefaultPort = 21;
constexpr size_t kMaxName = 23; // what the client uses of user and password

template <size_t N>
bool set(char (&to)[N], const std::string& from, size_t most = N - 1)
{
  if (from.empty() || from.size() > most)
    return false;
  memcpy(to, from.c_str(), from.size() + 1);
  return true;
}

bool set_port(uint16_t& to, const std::string& digits)
{
  const bool good = !digits.empty() && digits.size() <= 5 &&
                    std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  const int port = good ? atoi(digits.c_str()) : 0; // NOLINT(cert-err34-c): digits only
  to = static_cast<uint16_t>(port);
  return port >= 1 && port <= 65535;
}

} // namespace

bool parse_upload_target(const char* url, UserDefServerSet_t& target)
{
  const std::string text = url;
  const size_t scheme = strlen(kScheme);
  if (text.compare(0, scheme, kScheme) != 0 ||
      std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; }))
    return false;
  const size_t slash = text.find('/', scheme);
  const std::string authority = text.substr(scheme, slash == std::string::npos ? slash : slash - scheme);
  const std::string dir = slash == std::string::npos ? "" : text.substr(slash + 1);

  const size_t at = authority.rfind('@');
  const size_t secret = authority.find(':');
  if (at == std::string::npos || secret == std::string::npos || secret > at)
    return false;
  const std::string host = authority.substr(at + 1);
  const size_t port = host.find(':');

  target = {};
  target.server_port = kDefaultPort;
  return set(target.username, authority.substr(0, secret), kMaxName) &&
         set(target.password, authority.substr(secret + 1, at - secret - 1), kMaxName) &&
         set(target.server_addr, host.substr(0, port)) &&
         (port == std::string::npos || set_port(target.server_port, host.substr(port + 1))) &&
         (dir.empty() || set(target.remotedir, dir));
}
