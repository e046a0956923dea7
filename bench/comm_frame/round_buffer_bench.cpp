// RoundBufMng storing a frame and handing it out in place, against the one memcpy that storing needs.

#include <devcomm/round_buffer.h>

#include "comm_data/rounds.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace
{
constexpr size_t areaSize = 8 << 20;
constexpr int rounds = 801; // short ones: neighbours see the same machine
constexpr size_t framesPerRound = 1000;

template <typename Run>
void repeat(Run run)
{
  for (size_t i = 0; i < framesPerRound; i++)
  {
    run();
  }
}

void measure(size_t frameSize, bool locked)
{
  std::vector<unsigned char> in(frameSize, 1);
  auto buffer = std::make_unique<RoundBufMng>(areaSize);
  buffer->m_bUseLock = locked;
  buffer->RegisterUser(UserType_Live);
  buffer->ResetUserInfo(UserType_Live);

  // The copies go into the very same area: its first frame starts it.
  FrameInfo_t first = {1, 0, 0, 1};
  unsigned char* area = nullptr;
  buffer->PutFrameToBuffer(&first, 0, in.data(), nullptr);
  buffer->GetFrameFromBuffer(UserType_Live, &area, &first);
  size_t at = 0;

  const auto copies = [&]
  {
    repeat(
        [&]
        {
          at = areaSize - at < frameSize ? 0 : at;
          memcpy(area + at, in.data(), frameSize);
          keep(*area);
          at += frameSize;
        });
  };
  const auto frames = [&]
  {
    repeat(
        [&]
        {
          FrameInfo_t info = {1, 0, 0, static_cast<uint32_t>(frameSize)};
          unsigned char* frame = nullptr;
          buffer->PutFrameToBuffer(&info, 0, in.data(), nullptr);
          if (buffer->GetFrameFromBuffer(UserType_Live, &frame, &info) != 0)
          {
            abort();
          }
        });
  };
  const Medians times = alternate(rounds, frames, copies);
  printf("| RoundBufMng put and get, %zu KiB frames%s | one memcpy | %.2f | %.0f ns a frame against %.0f |\n",
         frameSize / 1024, locked ? ", lock on" : "", times.ratio, times.ours * 1e9 / framesPerRound,
         times.theirs * 1e9 / framesPerRound);
}
} // namespace

int main()
{
  for (const size_t kilobytes : {1, 16, 64})
  {
    measure(kilobytes * 1024, false);
    measure(kilobytes * 1024, true);
  }
}
