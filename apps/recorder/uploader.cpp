#include "uploader.h"

#include "clock.h"
#include "upload_session.h"

#include <devcomm/icmp.h>

#include <algorithm>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int64_t kPauseUs = 100000;
constexpr int64_t kGatherUs = 10000000; // events of that time share a file
constexpr int64_t kFirstWaitUs = 500000;
constexpr int64_t kLongestWaitUs = 30000000;
constexpr int kSilenceSeconds = 90; // the FTP client itself waits a minute for a reply
constexpr int kStopPauses = 20;

// Without that right NetIsOk says no to everything.
bool may_ping()
{
  const int sock = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
  if (sock >= 0)
    close(sock);
  return sock >= 0;
}

} // namespace

Uploader::Uploader(Outbox& outbox, Journal& journal) : outbox_(outbox), journal_(journal) {}

bool Uploader::start(const UserDefServerSet_t& server)
{
  server_ = server;
  running_ = true;
  if (Start("uploader") == 0)
    return true;
  running_ = false;
  return false;
}

bool Uploader::stop()
{
  SetStatus(0);
  for (int i = 0; i < kStopPauses && running_; ++i)
    nap_us(kPauseUs);
  if (running_)
    return false;
  Stop();
  return true;
}

std::string Uploader::describe() const
{
  if (!outbox_.is_open())
    return "";
  const CAutoLock guard(&lock_);
  if (!sending_.empty())
    return "upload " + sending_ + " " + std::to_string(percent_) + "%";
  return "outbox " + std::to_string(outbox_.files().size()) + " waiting";
}

void* Uploader::PthreadProc()
{
  {
    const Dog dog("uploader", kSilenceSeconds);
    int64_t gatherUs = 0;
    int64_t tryUs = 0;
    int64_t waitUs = kFirstWaitUs;
    size_t failures = 0;
    while (GetStatus() != 0)
    {
      dog.feed();
      const int64_t now = monotonic_us();
      if (now >= gatherUs)
      {
        outbox_.put_events(journal_);
        gatherUs = now + kGatherUs;
      }
      const auto files = outbox_.files();
      if (files.empty() || now < tryUs)
        nap_us(kPauseUs);
      else if (reachable() && send(files[failures % files.size()], dog))
      {
        waitUs = kFirstWaitUs;
        failures = 0;
        gatherUs = 0; // the server is there now
      }
      else
      {
        ++failures;
        tryUs = monotonic_us() + waitUs;
        waitUs = std::min(waitUs * 2, kLongestWaitUs);
      }
    }
  }
  running_ = false;
  return nullptr;
}

bool Uploader::reachable() const
{
  return !may_ping() || CICMP().NetIsOk(server_.server_addr) == 1;
}

// @return whether the server has it
bool Uploader::send(const std::string& file, const Dog& dog)
{
  const bool sent = upload_file(server_, outbox_.path(file), file,
                                [&](int64_t done, int64_t size)
                                {
                                  dog.feed();
                                  const CAutoLock guard(&lock_);
                                  sending_ = file;
                                  percent_ = static_cast<int>(size == 0 ? 100 : done * 100 / size);
                                  return GetStatus() != 0;
                                });
  if (sent)
    outbox_.remove(file);
  const CAutoLock guard(&lock_);
  sending_.clear();
  return sent;
}
