#include <devcomm/unix_domain.h>

#include "comm_server_client/unix_domain_address.h"

#include <devcomm/watchdog.h>

#include "internal/relaxed.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

constexpr size_t kDatagramBytes = 4352;
constexpr int kPatienceMs = 1000;
constexpr int kPauseMs = 100;
constexpr int kDogSeconds = 120;

struct Listener : unix_domain_listen_st
{
  int freeAtEnd; // its own callback called StopUnixDomainListen; the listener's thread alone touches this
};

thread_local const Listener* currentListener = nullptr;

int64_t steady_ms()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void free_listener(Listener* listener)
{
  ThreadUninit(listener->thread);
  delete listener;
}

/// The listener's thread at work, from the bound socket on.
class ListenLoop
{
public:
  ListenLoop(Listener& listener, int sock, char* buffer) : l(listener), m_sock(sock), m_buffer(buffer) {}
  void run();

private:
  bool wait();
  bool receive();

  Listener& l;
  const int m_sock;
  char* const m_buffer; // kDatagramBytes and a zero behind them
  int64_t m_patienceMs = kPatienceMs;
};

void ListenLoop::run()
{
  CCommDog* dogs = CCommDog::Instance();
  char name[] = "UnixDomain";
  l.dogId = dogs == nullptr ? -1 : dogs->RegisterDog(name, kDogSeconds);
  relaxed_store(l.sock, m_sock);
  while (ThreadGetStatus(l.thread) != 0)
  {
    if (dogs != nullptr)
    {
      dogs->FeedDog(l.dogId);
    }
    if (wait() && !receive())
    {
      usleep(kPauseMs * 1000);
    }
  }
  if (dogs != nullptr)
  {
    dogs->DeregisterDog(l.dogId);
  }
}

// The long wait is not renewed: passes share one second of waiting, and from then on an idle listener makes ten a
// second. This is meant: a stop is noticed the sooner.
bool ListenLoop::wait()
{
  pollfd fd{m_sock, POLLIN, 0};
  if (m_patienceMs <= 0)
  {
    return poll(&fd, 1, kPauseMs) != 0;
  }
  const int64_t start = steady_ms();
  const int count = poll(&fd, 1, static_cast<int>(m_patienceMs));
  m_patienceMs -= steady_ms() - start;
  return count != 0;
}

// False: there was nothing to receive after all.
bool ListenLoop::receive()
{
  memset(m_buffer, 0, kDatagramBytes);
  struct
  {
    sockaddr_un address;
    char end; // a path may fill the address, and callbacks read it as a string
  } from{};
  constexpr socklen_t room = sizeof from.address;
  socklen_t fromLen = room; // each time: a short address must not cut the next one
  const ssize_t got =
      recvfrom(m_sock, m_buffer, kDatagramBytes, 0, reinterpret_cast<sockaddr*>(&from.address), &fromLen);
  if (got < 0)
  {
    return false;
  }
  // Of a path that fills the address the kernel counts a zero behind it, and takes no answer of that length.
  fromLen = std::min(fromLen, room);
  l.callback(m_sock, &from.address, &fromLen, m_buffer, static_cast<int>(got), l.arg);
  return true;
}

// A socket on the path, in place of whatever lies there; -1 when it cannot be had.
int open_listening(const char* path)
{
  const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0)
  {
    return -1;
  }
  const sockaddr_un address = unix_domain_address(path);
  unlink(address.sun_path);
  if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      fcntl(sock, F_SETFL, O_NONBLOCK) != 0)
  {
    close(sock);
    return -1;
  }
  return sock;
}

void listen_until_stopped(Listener& listener)
{
  const int sock = open_listening(listener.path);
  if (sock < 0)
  {
    return;
  }
  printf("UnixDomainProc fd = %d, pid = %d\n", sock, static_cast<int>(getpid()));
  auto* buffer = static_cast<char*>(calloc(kDatagramBytes + 1, 1));
  if (buffer == nullptr)
  {
    close(sock);
    return;
  }
  ListenLoop(listener, sock, buffer).run();
  close(sock);
  relaxed_store(listener.sock, -1);
  free(buffer);
  puts("Unix Domain Thread Exit");
}

void listener_main(CommonThread_st* thread, void* arg)
{
  auto* listener = static_cast<Listener*>(arg);
  currentListener = listener;
  listen_until_stopped(*listener);
  currentListener = nullptr;
  if (listener->freeAtEnd != 0)
  {
    ThreadExit(thread);
    // With a tid left somebody is joining this thread against the rules; the record then stays behind for him.
    if (thread->tid == 0)
    {
      free_listener(listener);
    }
  }
}

} // namespace

void* StartUnixDomainListen(char* path, UnixDomainCallback_t callback, void* arg)
{
  auto* listener = path == nullptr || callback == nullptr ? nullptr : new (std::nothrow) Listener();
  if (listener == nullptr)
  {
    return nullptr;
  }
  memcpy(listener->path, path, strnlen(path, sizeof listener->path - 1));
  listener->callback = callback;
  listener->arg = arg;
  listener->thread = ThreadInit();
  if (listener->thread == nullptr)
  {
    delete listener;
    return nullptr;
  }
  char name[64];
  snprintf(name, sizeof name, "Start Unix Domain Listen: %.36s", listener->path); // 62 characters at most
  // A thread that the system does not grant is a positive result, and leaves a handle that never listens.
  if (ThreadStart(listener->thread, listener_main, listener, name) < 0)
  {
    free_listener(listener);
    return nullptr;
  }
  return static_cast<unix_domain_listen_st*>(listener);
}

int StopUnixDomainListen(void* handle)
{
  if (handle == nullptr)
  {
    return 0;
  }
  auto* listener = static_cast<Listener*>(static_cast<unix_domain_listen_st*>(handle));
  if (listener == currentListener)
  {
    listener->freeAtEnd = 1;
    ThreadSetStatus(listener->thread, 0);
    return 0;
  }
  ThreadStop(listener->thread);
  free_listener(listener);
  return 0;
}
