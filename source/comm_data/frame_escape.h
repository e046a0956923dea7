#pragma once

/// The plain loops behind bb_encode and bb_decode: the fallback where no vector unit helps, the end of
/// every frame, and what tests and benchmarks hold the fast paths against.

/// Where a walk over a frame stands: next byte to read and next byte to write.
struct EscapeCursor
{
  int in;
  int out;
};

/// Escapes in[at.in .. end-1] to out[at.out ...].
/// @return both positions after the last byte
inline EscapeCursor escape_plain(const unsigned char* in, int end, unsigned char* out, EscapeCursor at)
{
  while (at.in < end)
  {
    const unsigned char c = in[at.in++];
    if (c == 0x7E || c == 0x7D)
    {
      out[at.out++] = 0x7D;
      out[at.out++] = c == 0x7E ? 0x02 : 0x01;
    }
    else
    {
      out[at.out++] = c;
    }
  }
  return at;
}

/// Takes the escaping out of in[at.in .. end-1]; a pair may take in[end], the closing flag, as its second
/// byte. Safe when out is in.
/// @return both positions after the last byte
inline EscapeCursor unescape_plain(const unsigned char* in, int end, unsigned char* out, EscapeCursor at)
{
  while (at.in < end)
  {
    const unsigned char c = in[at.in++];
    if (c == 0x7D && (in[at.in] == 0x02 || in[at.in] == 0x01))
    {
      out[at.out++] = in[at.in++] == 0x02 ? 0x7E : 0x7D;
    }
    else
    {
      out[at.out++] = c;
    }
  }
  return at;
}
