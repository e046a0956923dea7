#pragma once

/// The loops behind bb_encode and bb_decode. The plain ones run everywhere, end every frame, and are what
/// tests and benchmarks hold the fast ones against.

/// Where a walk over a frame stands: next byte to read and next byte to write.
struct EscapeCursor
{
  int in;
  int out;
};

/// A loop over in[at.in .. end-1], which writes to out[at.out ...] its result and nothing beyond.
using EscapeLoop = EscapeCursor (*)(const unsigned char* in, int end, unsigned char* out, EscapeCursor at);

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

/// The fastest loops that this processor runs.
struct EscapeLoops
{
  EscapeLoop escape = escape_plain;
  EscapeLoop unescape = unescape_plain;
};

#if defined(__x86_64__) || defined(__i386__)
EscapeLoops escape_loops();
#else
inline EscapeLoops escape_loops()
{
  return {};
}
#endif
