#include "control_server.h"

#include "control_path.h"

#include <devcomm/unix_domain.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace
{

constexpr char kMark[] = "mark ";

} // namespace

ControlServer::ControlServer(const Status& status, EventBus& events) : status_(status), events_(events) {}

bool ControlServer::start(int port)
{
  control_path(port, path_, sizeof path_);
  listener_ = StartUnixDomainListen(path_, on_request, this);
  return listener_ != nullptr;
}

void ControlServer::stop()
{
  if (listener_ == nullptr)
    return;
  StopUnixDomainListen(listener_);
  listener_ = nullptr;
  unlink(path_);
}

int ControlServer::on_request(int sock, sockaddr_un* from, unsigned* fromLength, char* data, int length,
                              void* self)
{
  char request[kControlBytes];
  const auto taken = static_cast<size_t>(std::clamp(length, 0, kControlBytes - 1));
  memcpy(request, data, taken);
  request[taken] = '\0';

  char text[kControlBytes];
  static_cast<ControlServer*>(self)->answer(request, text, sizeof text);
  SendUnixDomainDataToAddr(sock, from, fromLength, text, static_cast<int>(strlen(text)));
  return 0;
}

void ControlServer::answer(char* request, char* text, size_t size)
{
  if (strcmp(request, "status") == 0)
    status_.write(text, size);
  else if (strcmp(request, "stop") == 0)
  {
    snprintf(text, size, "stopping");
    kill(getpid(), SIGTERM);
  }
  else if (strncmp(request, kMark, strlen(kMark)) == 0)
  {
    // A line end or a terminal's control codes have no place in an event.
    std::replace_if(
        request, request + strlen(request), [](char c) { return c > 0 && c < ' '; }, ' ');
    events_.publish("mark", request + strlen(kMark));
    snprintf(text, size, "marked");
  }
  else
    snprintf(text, size, "unknown request");
}
