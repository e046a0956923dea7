// Queues a request, moves it through a pipe, and takes the lines out at the other end.

#include <devcomm/byte_buffer.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int main()
{
  int fds[2];
  if (pipe(fds) != 0)
  {
    return 1;
  }

  SimpleBufMng queue;
  queue.Add("GET position\r\n", 14);
  queue.Add("GET time\r\nGET sp", 16);
  const int written = queue.Write(fds[1]);
  printf("wrote %d bytes, %u left\n", written, queue.Length());

  ExpandBuffer* received = ExpandBuffer_new();
  ExpandBuffer_read(received, fds[0], -1); // -1: as much as one call takes
  int lines = 0;
  while (char* line = ExpandBuffer_readline(received))
  {
    printf("line: %s\n", line);
    free(line);
    ++lines;
  }
  printf("%u bytes wait for the rest of their line\n", received->length);

  const bool right = lines == 2 && received->length == 6;
  ExpandBuffer_free(received);
  close(fds[0]);
  close(fds[1]);
  return right ? 0 : 1;
}
