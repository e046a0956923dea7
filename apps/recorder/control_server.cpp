#include "control_server.h"

#include "control_path.h"

#include <devcomm/unix_domain.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

namespace
{

constexpr char kMark[] = "mark ";
constexpr char kClip[] = "clip";
constexpr int kClipKeyFrames = 5;

} // namespace

ControlServer::ControlServer(const Status& status, EventBus& events, ClipMaker& clips)
    : status_(status), events_(events), clips_(clips)
{
}

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
  else if (strncmp(request, kClip, strlen(kClip)) == 0)
    make_clip(request + strlen(kClip), text, size);
  else
    snprintf(text, size, "unknown request");
}

// @param count  empty, or a blank and the number of key frames
void ControlServer::make_clip(const char* count, char* text, size_t size)
{
  char* end = nullptr;
  const long keyFrames = *count == '\0' ? kClipKeyFrames : strtol(count, &end, 10);
  const bool good = (*count == '\0' || (*count == ' ' && *end == '\0')) && keyFrames >= 1 &&
                    keyFrames <= FrameHistory::kMaxKeyFrames;
  std::string name;
  const char* why = good ? clips_.make(static_cast<int>(keyFrames), name) : "it takes 1 to 15 key frames";
  if (why == nullptr)
    snprintf(text, size, "%s", name.c_str());
  else
    snprintf(text, size, "no clip: %s", why);
}
