// A camera's frames, and a viewer that joins late, begins three frames back and follows.

#include <devcomm/frame_buffer.h>

#include <cstdio>
#include <cstring>

int main()
{
  CCommBuffer frames(1 << 20, nullptr, nullptr);
  const int viewer = frames.Register(0, 0);

  for (uint32_t i = 0; i < 10; i++)
  {
    char payload[16];
    snprintf(payload, sizeof payload, "picture %u", i);
    FrameInfo_t info = {0, i % 5 == 0 ? 1U : 0U, 0, static_cast<uint32_t>(strlen(payload) + 1)};
    frames.PutData(reinterpret_cast<unsigned char*>(payload), &info);
  }

  frames.Seek(viewer, 0, 3);
  int seen = 0;
  unsigned char picture[64];
  FrameInfo_t info;
  while (frames.Read(viewer, picture, &info) == 1)
  {
    printf("%s, %u bytes%s\n", reinterpret_cast<char*>(picture), info.length,
           info.frameType == 1 ? ", key" : "");
    seen++;
  }
  frames.Unregister(viewer);
  return seen == 3 ? 0 : 1;
}
