// memfind beside the C library's memmem: the text sought stands at the very end.

#include "comm_data/rounds.h"

#include <devcomm/text.h>

#include <cstring>
#include <random>
#include <string>

namespace
{

constexpr int Size = 16 << 20;

void search(const char* kind, unsigned letters, int length)
{
  std::vector<char> text(Size);
  std::mt19937 random(1);
  for (char& c : text)
  {
    c = static_cast<char>('A' + (random() >> 8) % letters);
  }
  std::vector<char> what(text.end() - length, text.end());
  if (length < 16)
  {
    what.back() = '\0'; // short ones would be found early; this one never
  }
  const std::string name = "memfind, 16 MiB " + std::string(kind) + ", " + std::to_string(length) + " bytes";
  const auto size = static_cast<size_t>(length);
  if (letters == 256 && length < 16)
  {
    std::replace(text.begin(), text.end(), '\0', 'x');
  }
  print_row(name.c_str(), "memmem", Size,
            alternate(
                15,
                [&]
                {
                  const char* place = memfind(text.data(), Size, what.data(), length);
                  keep(place);
                },
                [&]
                {
                  const void* place = memmem(text.data(), Size, what.data(), size);
                  keep(place);
                }));
}

} // namespace

int main()
{
  for (int length : {2, 4, 8, 16, 32, 64})
  {
    search("random", 256, length);
    search("4-letter", 4, length);
  }
  return 0;
}
