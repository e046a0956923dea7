// Escaping beside its plain loop, checksums beside a read-only pass over the same memory.

#include "comm_data/frame_escape.h"
#include "comm_data/rounds.h"

#include <devcomm/codec.h>

#include <cstdint>
#include <cstring>
#include <random>

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr int Size = 16 << 20;

void escaping(Bytes& frame)
{
  Bytes wire(2 * Size);
  Bytes back(Size);
  const int length = bb_encode(frame.data(), Size, wire.data(), 2 * Size);
  print_row("bb_encode, 16 MiB random", "plain byte loop", Size,
            alternate(
                21, [&] { bb_encode(frame.data(), Size, wire.data(), 2 * Size); },
                [&]
                {
                  EscapeCursor at = escape_plain(frame.data(), Size - 1, wire.data(), {1, 1});
                  keep(at);
                }));
  print_row("bb_decode, 16 MiB random", "plain byte loop", Size,
            alternate(
                21, [&] { bb_decode(wire.data(), length, back.data(), Size); },
                [&]
                {
                  EscapeCursor at = unescape_plain(wire.data(), length - 1, back.data(), {1, 1});
                  keep(at);
                }));
}

// The memory's limit: every word is read, and as little as possible done with it.
void read_pass(const Bytes& bytes)
{
  uint64_t all = 0;
  for (size_t i = 0; i < bytes.size(); i += sizeof all)
  {
    uint64_t word = 0;
    memcpy(&word, &bytes[i], sizeof word);
    all |= word;
  }
  keep(all);
}

void checksums(Bytes& bytes)
{
  const auto pass = [&]
  {
    read_pass(bytes);
  };
  print_row("get_xor_crc_uchar, 16 MiB", "read-only pass", Size,
            alternate(
                21,
                [&]
                {
                  unsigned char crc = get_xor_crc_uchar(bytes.data(), Size);
                  keep(crc);
                },
                pass));
  print_row("calc_sum, 16 MiB", "read-only pass", Size,
            alternate(
                21,
                [&]
                {
                  unsigned char sum = calc_sum(bytes.data(), Size);
                  keep(sum);
                },
                pass));
}

} // namespace

int main()
{
  Bytes bytes(Size);
  std::mt19937 random(1);
  for (unsigned char& c : bytes)
  {
    c = static_cast<unsigned char>(random() >> 8);
  }
  escaping(bytes);
  checksums(bytes);
  return 0;
}
