#pragma once

#include <devcomm/export.h>

/// @file
/// Byte-level helpers for binary message protocols: escaping of flag-delimited frames, checksums, packed
/// BCD and hexadecimal text. Everything works on the caller's buffers, allocates nothing, keeps no state
/// and may be called from any thread. A null buffer is never touched.
///
/// A frame begins and ends with a flag byte (0x7E). Between the flags 0x7E travels as 0x7D 0x02 and 0x7D
/// as 0x7D 0x01.

/// Escapes a frame. The first and the last byte are copied unchanged.
///
/// @param in       the whole frame with both flags
/// @param n        bytes of in; 0 to 2 copies two bytes, so that both buffers must hold two
/// @param out      up to 2n bytes are written; must not overlap in
/// @param outSize  accepted and not used: the caller guarantees the room
/// @return bytes written; 0 when n is negative or a buffer is null
DEVCOMM_API int bb_encode(unsigned char* in, int n, unsigned char* out, int outSize);

/// Takes the escaping out of a frame. 0x7D before any byte but 0x01 and 0x02 is kept as it is.
///
/// @param in       the escaped frame with both flags; nothing beyond its n bytes is read
/// @param n        bytes of in; 0 to 2 copies two bytes, so that both buffers must hold two
/// @param out      up to n bytes are written; may be in itself
/// @param outSize  accepted and not used: the caller guarantees the room
/// @return bytes written; 0 when n is negative or a buffer is null. A pair that reaches into the closing
///         flag takes the flag's place
DEVCOMM_API int bb_decode(unsigned char* in, int n, unsigned char* out, int outSize);

/// @return XOR of the n bytes, 0 to 255; 0 when n is below 1 or p is null
DEVCOMM_API unsigned char get_xor_crc_char(const char* p, int n);
/// @copydoc get_xor_crc_char
DEVCOMM_API unsigned char get_xor_crc_uchar(unsigned char* p, int n);

/// @return sum of the n bytes modulo 256; 0 when n is below 1 or p is null
DEVCOMM_API unsigned char calc_sum(unsigned char* p, int n);

/// @return sum of the n bytes modulo 2^32; 0 when n is below 1 or p is null
DEVCOMM_API unsigned int calc_sum_u32(unsigned char* p, int n);

/// Packs the first 2n characters of a decimal text into n bytes, first digit in the high half.
///
/// @param s    shorter texts count as padded with '0' on the left. Characters are not checked: the low
///             four bits of each are taken
/// @param out  n bytes; may be s itself
/// @param n    bytes of out; callers keep to 177 at most
/// @return 0; -1 when s or out is null or n is below 1
DEVCOMM_API int string2bcd(const char* s, unsigned char* out, int n);

/// Unpacks n BCD bytes into 2n characters and a terminating zero.
///
/// @param out  2n + 1 characters; each is '0' OR the four bits, which gives ':' to '?' for halves above 9
/// @return out; null when in or out is null. A negative n writes nothing
DEVCOMM_API char* bcd2string(unsigned char* in, int n, char* out);

/// Writes a time as six BCD bytes in local time: years since 2000, month 1 to 12, day, hour, minute, second.
///
/// @param t    seconds since 1970; a year outside 2000 to 2099 is not reduced, its bits fall where they do
/// @param out  6 bytes
/// @return 0; -1 when out is null
DEVCOMM_API int time2bcd(long t, unsigned char* out);

/// Reads six BCD bytes as time2bcd writes them. Nothing is validated; mktime carries what is out of range.
///
/// @return seconds since 1970 of that local standard time; -1 when mktime has no answer or in is null
DEVCOMM_API long bcd2time(unsigned char* in);

/// Writes a CAN-bus time stamp in local time: BCD hour, minute, second, then a byte with the tenth of the
/// second in its low half, then the BCD hundredths and thousandths.
///
/// @param out      5 bytes
/// @param seconds  seconds since 1970, or 0 for now; the part below the second is always now's
/// @return 0; -1 when out is null
DEVCOMM_API int canbustime2bcd(unsigned char* out, int seconds);

/// @return the upper-case hexadecimal digit of the low four bits of v
DEVCOMM_API unsigned char hex2char(unsigned char v);

/// @return 0 to 15 for a hexadecimal digit of either case; 0 for anything else
DEVCOMM_API unsigned char char2hex(unsigned char c);

/// Writes n bytes as 2n upper-case hexadecimal digits, high half first, without a terminating zero.
///
/// @param out  2n characters; must not overlap in
/// @return 2n; 0 when a buffer is null
DEVCOMM_API int hex2ascii(unsigned char* out, unsigned char* in, unsigned int n);

/// Reads n hexadecimal digits as n/2 bytes; a character that is no digit counts as 0.
///
/// @param out  n/2 bytes; may be in itself
/// @return n/2; 0 when n is odd or a buffer is null, and nothing is written
DEVCOMM_API int ascii2hex(unsigned char* out, unsigned char* in, unsigned int n);
