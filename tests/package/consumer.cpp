#include <devcomm/devcomm.h>

#include <cstring>

int main()
{
  SimpleBufMng buffer;
  char out[3] = {};
  return buffer.Add("ab", 2) == 0 && buffer.Remove(out, 2) == 2 && strcmp(out, "ab") == 0 ? 0 : 1;
}
