// Events that wait for an upload: saved, and found again by the next run of the process.

#include <devcomm/cache_file.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main()
{
  char dir[] = "/tmp/devcomm_example_XXXXXX";
  if (mkdtemp(dir) == nullptr)
  {
    return 1;
  }
  char path[64];
  snprintf(path, sizeof path, "%s/events", dir);
  {
    CCacheDataEX events;
    events.SetFileName(path);
    const char* const happened[] = {"ignition on", "left the yard", "speeding"};
    for (const char* text : happened)
    {
      events.saveCacheData(7, static_cast<int>(strlen(text) + 1), text);
    }
    int tag = 0;
    int len = 0;
    char sent[512];
    events.readCacheData(tag, len, sent);
  }

  CCacheDataEX events;
  events.SetFileName(path);
  int waiting = 0;
  int tag = 0;
  int len = 0;
  char text[512];
  while (events.readCacheData(tag, len, text) == 0)
  {
    printf("to send: event %d, %s\n", tag, text);
    waiting++;
  }
  events.CloseCacheFile();
  events.RemoveCacheFile();
  return remove(dir) == 0 && waiting == 2 ? 0 : 1;
}
