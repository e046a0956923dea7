// An echo server and a standalone connection that talks to it, in one process.

#include <devcomm/socket.h>
#include <devcomm/tcp_service.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace
{

// On the thread of each accepted connection.
int echo(SERVICE_STATE_E state, const char* data, int len, tcp_server_st*, tcp_client_st* client, void*)
{
  if (state == SERVICE_STATE_RECV)
  {
    ClientSendData(client, data, len, 0);
  }
  return len; // everything received is consumed
}

// On the thread of the connection that asks.
int ask(SERVICE_STATE_E state, const char* data, int len, tcp_server_st*, tcp_client_st* client, void* arg)
{
  static const char kQuestion[] = "anybody there?\n";
  const int wanted = static_cast<int>(strlen(kQuestion));
  if (state == SERVICE_STATE_START)
  {
    ClientSendData(client, kQuestion, wanted, 0);
  }
  if (state != SERVICE_STATE_RECV || len < wanted)
  {
    return 0; // kept until the whole answer is there
  }
  printf("echoed: %.*s", len, data);
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return len;
}

} // namespace

int main()
{
  tcp_server_st* server = ServerInit();
  int port = 20000 + getpid() % 20000;
  while (port < 65535 && ServerStartListen(server, port, 60000, 8, echo, nullptr) != 0)
  {
    ++port; // taken by somebody else
  }
  std::atomic<bool> answered{false};
  tcp_client_st* client = ClientInit();
  const int sock = tcp_connect("127.0.0.1", port, nullptr, 2000, 0, 0);
  if (sock >= 1 && ClientStart(client, nullptr, sock, 5000, ask, &answered) == 0)
  {
    while (ClientGetStatus(client) == 1 && !answered)
    {
      usleep(1000);
    }
  }
  ClientUninit(client);
  ServerStopListen(server);
  ServerUninit(server);
  return answered ? 0 : 1;
}
