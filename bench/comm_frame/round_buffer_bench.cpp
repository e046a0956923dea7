// RoundBufMng storing a frame and handing it out in place, against the one memcpy that storing needs.

#include <devcomm/round_buffer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace
{
constexpr size_t areaSize = 8 << 20;
constexpr int rounds = 101;
constexpr size_t framesPerRound = 4000;

template <typename Run>
double seconds_of(Run run)
{
  const auto start = std::chrono::steady_clock::now();
  for (size_t i = 0; i < framesPerRound; i++)
  {
    run();
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
  std::nth_element(values.begin(), values.begin() + rounds / 2, values.end());
  return values[rounds / 2];
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

  std::vector<double> copies;
  std::vector<double> frames;
  for (int round = 0; round < rounds; round++)
  {
    copies.push_back(seconds_of(
        [&]
        {
          at = areaSize - at < frameSize ? 0 : at;
          memcpy(area + at, in.data(), frameSize);
          asm volatile("" ::"r"(area) : "memory");
          at += frameSize;
        }));
    frames.push_back(seconds_of(
        [&]
        {
          FrameInfo_t info = {1, 0, 0, static_cast<uint32_t>(frameSize)};
          unsigned char* frame = nullptr;
          buffer->PutFrameToBuffer(&info, 0, in.data(), nullptr);
          if (buffer->GetFrameFromBuffer(UserType_Live, &frame, &info) != 0)
          {
            abort();
          }
        }));
  }
  const double theirs = median(copies);
  const double ours = median(frames);
  printf("| RoundBufMng put and get, %zu KiB frames%s | one memcpy | %.2f | %.0f ns a frame against %.0f |\n",
         frameSize / 1024, locked ? ", lock on" : "", theirs / ours, ours * 1e9 / framesPerRound,
         theirs * 1e9 / framesPerRound);
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
