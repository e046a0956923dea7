// A control socket: one process listens on a path and answers, another asks. Here both are the same process.
#include <devcomm/unix_domain.h>

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace
{

// On the listener's thread.
int on_request(int sock, sockaddr_un* from, unsigned* fromLen, char* data, int len, void*)
{
  char answer[64];
  snprintf(answer, sizeof answer, "%.*s: recording", len, data);
  return SendUnixDomainDataToAddr(sock, from, fromLen, answer, static_cast<int>(strlen(answer)));
}

} // namespace

int main()
{
  char path[64];
  snprintf(path, sizeof path, "/tmp/example_control_%d", static_cast<int>(getpid()));
  void* listener = StartUnixDomainListen(path, on_request, nullptr);
  char request[] = "status";
  char reply[64];
  int replyLen = sizeof reply;
  int tries = 100;
  // The listener binds on its own thread: until then nobody is there.
  while (tries > 0 &&
         SendUnixDomainDataToName(request, sizeof request - 1, path, 1, 0, 1, reply, &replyLen) != 0)
  {
    usleep(10000);
    --tries;
  }
  if (tries > 0)
  {
    UnixDomainDbgLog("%.*s", replyLen, reply);
  }
  StopUnixDomainListen(listener);
  unlink(path); // stopping leaves it
  return tries > 0 ? 0 : 1;
}
