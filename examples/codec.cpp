// Escapes a frame with its checksum, as a serial protocol would, and takes it apart again.

#include <devcomm/codec.h>

#include <cstdio>
#include <cstring>

int main()
{
  unsigned char frame[] = {0x7E, 0x10, 0x7D, 0x7E, 0x00, 0x7E};
  frame[4] = get_xor_crc_uchar(frame + 1, 3);
  unsigned char wire[2 * sizeof frame];
  unsigned char back[sizeof wire];
  const int sent = bb_encode(frame, sizeof frame, wire, sizeof wire);
  const int got = bb_decode(wire, sent, back, sizeof back);

  unsigned char text[2 * sizeof wire];
  printf("%.*s\n", hex2ascii(text, wire, static_cast<unsigned int>(sent)), reinterpret_cast<char*>(text));
  return got == static_cast<int>(sizeof frame) && memcmp(back, frame, sizeof frame) == 0 ? 0 : 1;
}
