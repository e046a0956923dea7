// Times a shell command that has a limit, and says when and in which program.
#include <devcomm/time_process.h>

#include <cstdio>

int main()
{
  const unsigned long long start = msecdiff(0);
  const int result = systemdump("exit 3", 5); // 0: ended in time, whatever its status
  if (result != 0)
  {
    return 1;
  }
  printf("the command took %llu ms\n", msecdiff(start));

  const tm now = GetRealTime(); // month 1 to 12 and the full year
  const time_t midnight = mktime_ex(now.tm_year, now.tm_mon, now.tm_mday, 0, 0, 0);
  printf("today began at %s\n", strtime(static_cast<long>(midnight)));

  char folder[1024];
  char name[1024];
  if (get_cur_process_info(folder, name, sizeof folder) < 0)
  {
    return 1;
  }
  printf("%s runs from %s\n", name, folder);
  return 0;
}
