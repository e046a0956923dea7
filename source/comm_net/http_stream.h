#pragma once

#include "comm_net/deadline.h"

#include <devcomm/http_download.h>

/// Seconds that connecting, sending or a wait for data may take.
constexpr int kHttpPatienceSec = 10;

/// Bytes a head, or the line before a chunk, may have; no server means well that sends more.
constexpr size_t kMostHead = 1 << 20;

/// How a read ended.
enum class ReadEnd
{
  Full,   ///< all bytes wanted are there
  Signal, ///< a signal came between: go on
  Closed, ///< the peer closed
  Silent, ///< nothing came for kHttpPatienceSec
  Error   ///< errno tells
};

/// Reads a block of bytes; the stream can be read on after any end.
///
/// @param patience  until when the peer may keep silent; the socket's own time-out begins anew with a signal
/// @param got       receives the number of bytes read, also when the block came short
ReadEnd read_block(FILE* in, char* block, size_t size, const Deadline& patience, size_t* got);

/// read_block through all signals.
ReadEnd read_whole(FILE* in, char* block, size_t size);

/// Reads a line of at most 8191 bytes, with its line end, into the record's buf.
///
/// @return bytes; 0 when there are none any more, the peer kept silent or reading failed
size_t read_line(http_t* h);

/// Whether read_line left off before the end of a line that is too long for it, or that the stream ends in.
bool is_cut(const http_t* h, size_t len);

/// strncasestr for texts that stay as they are.
const char* find_any_case(const char* text, const char* word);

/// A number at the begin of a text, after blanks, cut to the range of long long. @return whether there is one
bool number_at(const char* text, int base, long long* number);

inline bool is_int(long long number)
{
  return number >= INT32_MIN && number <= INT32_MAX;
}
