// A watchdog over two threads' dogs, one of which is not fed in time.
#include <devcomm/signal_handler.h>
#include <devcomm/watchdog.h>

#include <cstdio>

int main()
{
  SignalRegister(nullptr); // SIGTERM and Ctrl-C end the process with a line on standard error

  CCommDog* watchdog = CCommDog::Instance();
  char good_name[] = "recorder";
  char bad_name[] = "uploader";
  const int good = watchdog->RegisterDog(good_name, 60);
  const int bad = watchdog->RegisterDog(bad_name, -1); // seconds; below 0 it is overdue at once

  std::list<CHECK_DOG_INFO_S> dead;
  while (watchdog->CheckDog(dead) == 0) // a supervisor checks every few seconds
  {
    watchdog->FeedDog(good);
  }
  for (const CHECK_DOG_INFO_S& dog : dead)
  {
    printf("restart %s\n", dog.name);
  }
  const bool as_expected = dead.size() == 1 && dead.front().id == bad;
  watchdog->DeregisterDog(good);
  watchdog->DeregisterDog(bad);
  return as_expected ? 0 : 1;
}
