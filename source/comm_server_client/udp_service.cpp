#include "comm_server_client/udp_service.h"

#include "comm_server_client/socket_internal.h"

#include <devcomm/socket.h>

#include "internal/relaxed.h"

#include <cerrno>
#include <cstdio>

#include <poll.h>
#include <unistd.h>

namespace
{

constexpr int kPassMs = 20;
constexpr int kReadBytes = 4096;

thread_local const udp_client_st* currentService = nullptr;

/// Names the line that ended the service, in the GBK text that device logs are searched for.
bool end_at(int line)
{
  printf("\xD0\xD0\xBA\xC5\xA3\xBA"
         "%d \xBA\xAF\xCA\xFD\xC3\xFB\xA3\xBA"
         "%s \n",
         line, "UdpClientProc");
  return false;
}

bool is_passing(int error)
{
  return error == EAGAIN || error == EINTR;
}

/// The service's thread at work: one object for its whole run.
class UdpLoop
{
public:
  explicit UdpLoop(UdpService& service) : s(service), m_sock(service.sock) {}
  void run();
  void finish();

private:
  bool pass();
  bool report(SERVICE_STATE_E state);
  short wait();
  bool receive();
  bool send();

  UdpService& s;
  const int m_sock; // the record's may be taken away by then; this one is ours to close
};

void UdpLoop::run()
{
  if (!report(SERVICE_STATE_START))
  {
    end_at(__LINE__);
    return;
  }
  while (ThreadGetStatus(s.thread) != 0 && pass())
  {
  }
}

void UdpLoop::finish()
{
  char info[64];
  printf("udp remove conn, %s\n", sock_info_text(m_sock, info, sizeof info));
  report(SERVICE_STATE_CLOSE);
  if (m_sock >= 1)
  {
    close(m_sock);
  }
  relaxed_store(s.sock, -1);
}

// False: the service ends.
bool UdpLoop::pass()
{
  if (check_sock_err(m_sock) < 0)
  {
    return end_at(__LINE__);
  }
  const short ready = wait();
  if ((ready & (POLLIN | POLLERR | POLLHUP)) != 0 && !receive())
  {
    return false;
  }
  return (ready & POLLOUT) == 0 || send();
}

// False: the callback ends the service.
bool UdpLoop::report(SERVICE_STATE_E state)
{
  if (s.callback == nullptr)
  {
    return false;
  }
  const int used = s.callback(state, reinterpret_cast<const char*>(s.recvBuf->Buffer()),
                              static_cast<int>(s.recvBuf->Length()), &s, s.arg);
  if (used > 0)
  {
    s.recvBuf->Drain(static_cast<unsigned>(used));
  }
  return used >= 0;
}

// What the socket is ready for within the pass; 0 for nothing. Nobody ends the wait by queueing: what is queued
// within one pass leaves as one datagram, and receivers rely on it.
short UdpLoop::wait()
{
  const bool hasOutput = UdpClientGetSendBufSize(&s) > 0;
  pollfd fd{m_sock, static_cast<short>(hasOutput ? POLLIN | POLLOUT : POLLIN), 0};
  return poll(&fd, 1, kPassMs) < 1 ? short{0} : fd.revents;
}

bool UdpLoop::receive()
{
  const int count = s.recvBuf->UdpRead(m_sock, kReadBytes, nullptr);
  if (count == 0)
  {
    return end_at(__LINE__);
  }
  if (count < 0)
  {
    return is_passing(errno) || end_at(__LINE__);
  }
  return report(SERVICE_STATE_RECV) || end_at(__LINE__);
}

bool UdpLoop::send()
{
  pthread_mutex_lock(&s.sendLock);
  if (s.sendBuf->Length() == 0) // the callback emptied the queue behind our back
  {
    pthread_mutex_unlock(&s.sendLock);
    return true;
  }
  const int count = s.sendBuf->UdpWrite(m_sock, &s.peer);
  const int error = errno;
  pthread_mutex_unlock(&s.sendLock);
  if (count < 0 && is_passing(error))
  {
    return true;
  }
  if (count <= 0)
  {
    return end_at(__LINE__);
  }
  return report(SERVICE_STATE_SEND) || end_at(__LINE__);
}

} // namespace

bool udp_service_is_current(const udp_client_st* client)
{
  return client == currentService;
}

void udp_service_main(CommonThread_st* thread, void* arg)
{
  auto* service = static_cast<UdpService*>(arg);
  currentService = service;
  UdpLoop loop(*service);
  loop.run();
  loop.finish();
  currentService = nullptr;
  if (service->freeAtEnd == 0)
  {
    return; // the owner's to join, and to start again or free
  }
  ThreadExit(thread);
  // With a tid left somebody is joining this thread against the rules; the record then stays behind for him.
  if (thread->tid == 0)
  {
    udp_service_free(service);
  }
}
