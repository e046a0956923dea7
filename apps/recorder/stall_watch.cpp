#include "stall_watch.h"

#include <devcomm/watchdog.h>

#include <cstdio>
#include <list>

void StallWatch::check()
{
  std::list<CHECK_DOG_INFO_S> dead;
  CCommDog::Instance()->CheckDog(dead);
  std::set<int32_t> stalled;
  for (const CHECK_DOG_INFO_S& dog : dead)
  {
    if (named_.count(dog.id) == 0)
      fprintf(stderr, "recorder: thread '%s' has stalled\n", dog.name);
    stalled.insert(dog.id);
  }
  named_ = stalled;
}
