#include "comm_server_client/tcp_connection.h"

#include <devcomm/socket.h>
#include <devcomm/time_process.h>

#include "internal/assert_report.h"
#include "internal/relaxed.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace
{

constexpr int kPassMs = 20;
constexpr int kReadBytes = 4096;
constexpr int kLongYieldMs = 2;
constexpr int kNoYieldMs = 50;

thread_local const tcp_client_st* currentClient = nullptr;

int64_t now_ms()
{
  return static_cast<int64_t>(msecdiff(0));
}

/// The connection's thread at work: one object for its whole run.
class ConnectionLoop
{
public:
  explicit ConnectionLoop(Connection& connection) : c(connection), sock(connection.sock) {}

  void run();
  void finish();

private:
  bool pass();
  bool report(SERVICE_STATE_E state);
  bool idle();
  unsigned look_for_output();
  void let_others_run(int64_t passStart);
  short wait(int64_t passStart);
  bool receive(int64_t passStart);
  bool send();

  Connection& c;
  const int sock; // the record's may be taken away by then; this one is ours to close
  bool checkError = true;
  bool hasRoom = true;     // the last write took something, so the next one likely finds room
  int64_t emptiedMs = -1;  // when a read last left nothing behind
  int64_t longYieldMs = 0; // when a yield last took long, as one soon after it would
};

void ConnectionLoop::run()
{
  if (!report(SERVICE_STATE_START))
  {
    return;
  }
  while (ThreadGetStatus(c.thread) != 0 && pass())
  {
  }
}

void ConnectionLoop::finish()
{
  report(SERVICE_STATE_CLOSE);
  relaxed_store(c.sock, -1);
  if (sock >= 1)
  {
    close(sock);
  }
}

// False: the connection ends.
bool ConnectionLoop::pass()
{
  const int64_t now = now_ms();
  // The wait tells of a pending error as well, so a socket that moved bytes this very millisecond is not asked
  // without such a hint. After a slow callback it is: an error that came meanwhile ends it before another IDLE.
  if ((checkError || now != c.lastActiveMs) && check_sock_err(sock) < 0)
  {
    return false;
  }
  checkError = false;
  if (llabs(now - c.lastActiveMs) > relaxed_load(c.timeoutMs))
  {
    return false;
  }
  if (!idle())
  {
    return false;
  }
  const short ready = wait(now);
  checkError = (ready & (POLLERR | POLLHUP | POLLNVAL)) != 0;
  if ((ready & (POLLIN | POLLERR | POLLHUP)) != 0 && !receive(now))
  {
    return false;
  }
  return (ready & POLLOUT) == 0 || send();
}

// False: the callback ends the connection.
bool ConnectionLoop::report(SERVICE_STATE_E state)
{
  if (c.callback == nullptr)
  {
    return false;
  }
  tcp_server_st* server = c.link == nullptr ? nullptr : relaxed_load(c.link->server);
  const int used = c.callback(state, reinterpret_cast<const char*>(c.recvBuf->Buffer()),
                              static_cast<int>(c.recvBuf->Length()), server, &c, c.arg);
  if (used > 0)
  {
    c.recvBuf->Drain(static_cast<unsigned>(used));
  }
  relaxed_store(c.recvLength, static_cast<int>(c.recvBuf->Length()));
  return used >= 0;
}

bool ConnectionLoop::idle()
{
  if (relaxed_load(c.holdFlag) != 0)
  {
    pthread_mutex_lock(&c.sendLock);
    const bool held = c.holdFlag != 0 && c.sendBuf->Length() > 0;
    pthread_mutex_unlock(&c.sendLock);
    if (held)
    {
      return true;
    }
  }
  return report(SERVICE_STATE_IDLE);
}

// With nothing to send the thread is about to sleep without an eye on the socket's room: who queues must wake it.
unsigned ConnectionLoop::look_for_output()
{
  pthread_mutex_lock(&c.sendLock);
  const unsigned queued = c.sendBuf->Length();
  relaxed_store(c.asleep, queued > 0 ? 0 : 1);
  pthread_mutex_unlock(&c.sendLock);
  return queued;
}

// A peer that has just been answered often has its next message under way. Where this processor has other work that
// is soon done, such as other connections' messages, this thread finds the message there when it comes back, which
// costs less than to sleep and be woken. Where somebody keeps the processor busy it comes back only after his whole
// time slice; a yield that proves long is therefore the last one for a while. On a single processor the peer's side
// of the work is not going on meanwhile, and sleeping is cheaper.
void ConnectionLoop::let_others_run(int64_t passStart)
{
  static const bool severalProcessors = sysconf(_SC_NPROCESSORS_ONLN) > 1;
  if (!severalProcessors || passStart != c.lastActiveMs || llabs(passStart - longYieldMs) < kNoYieldMs)
  {
    return;
  }
  sched_yield();
  const int64_t now = now_ms();
  if (now > passStart + kLongYieldMs)
  {
    longYieldMs = now;
  }
}

// What the socket is ready for within the pass; 0 for nothing. A wake goes on waiting with the eye on the socket's
// room, so that it makes no pass, and no IDLE, of its own. With bytes to send and likely room there is no wait:
// both are tried, in their order, and finding the socket not ready costs less than asking.
short ConnectionLoop::wait(int64_t passStart)
{
  int left = kPassMs;
  do
  {
    const unsigned queued = look_for_output();
    if (queued > 0 && hasRoom)
    {
      // Within the millisecond of a read that emptied the socket there is little to look for again.
      return passStart == emptiedMs ? POLLOUT : POLLIN | POLLOUT;
    }
    if (queued == 0)
    {
      let_others_run(passStart);
    }
    const auto wanted = static_cast<short>(queued > 0 ? POLLIN | POLLOUT : POLLIN);
    pollfd fds[2] = {{sock, wanted, 0}, {c.wakeFd, POLLIN, 0}};
    const int count = poll(fds, 2, left);
    relaxed_store(c.asleep, 0);
    if (count < 1)
    {
      return 0;
    }
    if (fds[1].revents != 0)
    {
      eventfd_t wakes;
      eventfd_read(c.wakeFd, &wakes);
    }
    if (fds[0].revents != 0)
    {
      return fds[0].revents;
    }
    left = static_cast<int>(std::clamp<int64_t>(passStart + kPassMs - now_ms(), 0, kPassMs));
  } while (left > 0);
  return 0;
}

bool ConnectionLoop::receive(int64_t passStart)
{
  const int count = c.recvBuf->Read(sock, kReadBytes);
  if (count <= 0)
  {
    emptiedMs = passStart;
    return count < 0 && (errno == EAGAIN || errno == EINTR);
  }
  c.lastActiveMs = now_ms();
  emptiedMs = count < kReadBytes ? c.lastActiveMs : -1;
  if (!report(SERVICE_STATE_RECV))
  {
    DEVCOMM_ASSERT_REPORT(Warning);
    return false;
  }
  return true;
}

bool ConnectionLoop::send()
{
  pthread_mutex_lock(&c.sendLock);
  if (c.sendBuf->Length() == 0) // the callback emptied the queue behind our back
  {
    pthread_mutex_unlock(&c.sendLock);
    return true;
  }
  const int count = c.sendBuf->Write(sock);
  const int error = errno;
  hasRoom = count > 0;
  pthread_mutex_unlock(&c.sendLock);
  if (count < 0 && (error == EAGAIN || error == EINTR))
  {
    return true;
  }
  if (count > 0)
  {
    c.lastActiveMs = now_ms();
  }
  if (count <= 0 || !report(SERVICE_STATE_SEND))
  {
    errno = count <= 0 ? error : errno;
    DEVCOMM_ASSERT_REPORT(Warning);
    return false;
  }
  return true;
}

} // namespace

bool connection_is_current(const tcp_client_st* client)
{
  return client == currentClient;
}

void connection_main(CommonThread_st* thread, void* arg)
{
  auto* connection = static_cast<Connection*>(arg);
  currentClient = connection;
  ConnectionLoop loop(*connection);
  loop.run();
  loop.finish();
  currentClient = nullptr;
  if (connection->link != nullptr)
  {
    link_unlist(connection->link, connection);
  }
  else if (connection->freeAtEnd == 0)
  {
    return; // the owner's to join, and to start again or free
  }
  ThreadExit(thread);
  // With a tid left somebody is joining this thread against the rules; the record then stays behind for him.
  if (thread->tid == 0)
  {
    connection_free(connection);
  }
}
