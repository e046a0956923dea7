#include <devcomm/tcp_service.h>
#include <devcomm/time_process.h>

#include <cstdio>

#include <unistd.h>

namespace
{

int seconds_since(int64_t ms)
{
  return static_cast<int>(msecdiff(static_cast<unsigned long long>(ms)) / 1000);
}

} // namespace

namespace nw
{

CClient::CClient(int socket)
    : sock(socket), info(), quitFlag(0), area(), createTime(static_cast<int64_t>(msecdiff(0))),
      lastRecvTime(createTime), lastSendTime(createTime), startTime(createTime), recvCount(), sendCount()
{
}

CClient::~CClient()
{
  if (sock >= 1)
  {
    close(sock);
  }
}

void CClient::PrintInfo()
{
  printf("    client=%p, info=%.64s\n    quit flag=%d, last recv/send=%d/%d s\n", static_cast<void*>(this),
         info, quitFlag, seconds_since(lastRecvTime), seconds_since(lastSendTime));
  printf("    time=%d, recv=%d/%d, send=%d/%d\n", seconds_since(startTime), recvCount[1], recvCount[0],
         sendCount[1], sendCount[0]);
}

} // namespace nw
