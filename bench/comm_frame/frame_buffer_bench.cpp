// CCommBuffer against the bare copies it cannot do without: one memcpy into an area of the same size, and one out
// of it for each reader. Ratios are ours to theirs in frames a second.

#include <devcomm/frame_buffer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
constexpr size_t areaSize = 8 << 20;
constexpr int rounds = 31;

double seconds_of(void (*run)(void*, size_t), void* subject, size_t frames)
{
  const auto start = std::chrono::steady_clock::now();
  run(subject, frames);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
  std::nth_element(values.begin(), values.begin() + rounds / 2, values.end());
  return values[rounds / 2];
}

struct Subject
{
  size_t frameSize;
  int readers;
  std::vector<unsigned char> in;
  std::vector<unsigned char> out;
  std::vector<unsigned char> area;
  size_t at;
  CCommBuffer buffer;

  Subject(size_t frame, int count)
      : frameSize(frame), readers(count), in(frame, 1), out(frame), area(areaSize), at(0),
        buffer(areaSize, nullptr, nullptr)
  {
    for (int i = 0; i < count; i++)
    {
      buffer.Register(0, 0);
    }
  }
};

void run_copies(void* subject, size_t frames)
{
  auto& s = *static_cast<Subject*>(subject);
  for (size_t i = 0; i < frames; i++)
  {
    s.at = s.at + s.frameSize >= areaSize ? 0 : s.at;
    memcpy(s.area.data() + s.at, s.in.data(), s.frameSize);
    for (int reader = 0; reader < s.readers; reader++)
    {
      memcpy(s.out.data(), s.area.data() + s.at, s.frameSize);
      asm volatile("" ::"r"(s.out.data()) : "memory");
    }
    s.at += s.frameSize;
  }
}

void run_buffer(void* subject, size_t frames)
{
  auto& s = *static_cast<Subject*>(subject);
  for (size_t i = 0; i < frames; i++)
  {
    FrameInfo_t info = {i + 1, 0, 0, static_cast<uint32_t>(s.frameSize)};
    s.buffer.PutData(s.in.data(), &info);
    for (int reader = 0; reader < s.readers; reader++)
    {
      if (s.buffer.Read(reader, s.out.data(), &info) != 1)
      {
        abort();
      }
    }
  }
}

void measure(size_t frameSize, int readers)
{
  Subject subject(frameSize, readers);
  const size_t frames = std::max<size_t>(32, (areaSize * 4) / (frameSize * static_cast<size_t>(readers + 1)));
  std::vector<double> copies;
  std::vector<double> buffer;
  for (int round = 0; round < rounds; round++)
  {
    copies.push_back(seconds_of(run_copies, &subject, frames));
    buffer.push_back(seconds_of(run_buffer, &subject, frames));
  }
  const double theirs = median(copies);
  const double ours = median(buffer);
  printf("| CCommBuffer write and read, %zu KiB frames, %d reader%s | memcpy in and out | %.2f | "
         "%.0f ns a frame against %.0f |\n",
         frameSize / 1024, readers, readers == 1 ? "" : "s", theirs / ours,
         ours * 1e9 / static_cast<double>(frames), theirs * 1e9 / static_cast<double>(frames));
}
} // namespace

int main()
{
  for (const size_t kilobytes : {1, 16, 64})
  {
    for (const int readers : {1, 4, 16})
    {
      measure(kilobytes * 1024, readers);
    }
  }
}
