#pragma once

#include <devcomm/export.h>

#include <string>
#include <vector>

/// @file
/// Search in bytes and texts, splitting, bounded copies, hexadecimal dumps, and regular expressions. The
/// functions keep no state and may be called from any thread; a null text or buffer counts as empty.

/// Finds the first occurrence of whatLen bytes within len bytes.
///
/// @return its place in buf; null when there is none, or a length is below 1
///
/// Time grows with len, whatever the bytes are.
DEVCOMM_API char* memfind(char* buf, int len, const char* what, int whatLen);

/// @return first place in s where what begins; null when there is none or s is empty
DEVCOMM_API const char* strfind_s(const char* s, const char* what);

/// Takes the next field of a text: skips spaces and tabs, then copies up to the separator or the end.
///
/// @param s      zero-terminated
/// @param sep    the character between fields
/// @param field  room for the longest field and its zero; left unchanged when pos is at the end of s
/// @param pos    in: where to begin; out: just after the separator, or at the end of s. A position beyond
///               the end is left as it is
/// @return 1, always: callers see the end by pos reaching the length
DEVCOMM_API int str_split_by_char(char* s, char sep, char* field, unsigned int& pos);

/// Copies the smaller of len and dstSize - 1 bytes, zeros included, and writes a terminating zero.
///
/// @param dstSize  bytes of room in dst; below 1 nothing is written
/// @return dst
DEVCOMM_API char* stringcopy(const char* src, int len, char* dst, int dstSize);

/// Splits a text at every occurrence of a separator; n separators give n + 1 strings, empty ones included.
///
/// @param text       an empty text gives an empty list
/// @param separator  one or more characters taken as a whole; an empty one gives the text unsplit
/// @param list       cleared first
/// @return strings in the list; -1, with an empty list, when memory ran out
DEVCOMM_API int stringSplit(const char* text, const char* separator, std::vector<std::string>& list);

/// Prints bytes as "%02X " on standard output, a new line before every sixteenth (the first included), and
/// a line end. A len below 1 prints the line end only.
DEVCOMM_API void printbufhex(unsigned char* buf, int len);

/// Writes len bytes to standard output as they are.
DEVCOMM_API void printstrbuf(unsigned char* buf, int len);

/// Prints "FILE, FUNCTION, LINE: " and the formatted text on standard output, cut to 4095 characters in all.
/// @return 0
DEVCOMM_API int print_function_line(const char* file, const char* func, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Where a match or one of its groups lies in the text: bytes start to end - 1. Both are -1 for a group
/// that took no part.
struct RegexGroup
{
  int start;
  int end;
};

/// A compiled POSIX regular expression. Compiling needs the object to oneself; matching does not change it,
/// so that threads may match with one object at once.
///
///     CRegex pair;
///     pair.Compile("([a-z]+)=([0-9]+)", CRegex::Extended);
///     RegexGroup groups[3];
///     for (int pos = 0; pair.MatchNext(text, groups, 3, pos) == 1;)
///     {
///       // groups[1] is the name, groups[2] the number
///     }
class DEVCOMM_API CRegex
{
public:
  enum Flags
  {
    Basic = 0,
    Extended = 1,   ///< extended syntax
    IgnoreCase = 2, ///< both cases match
    NewLine = 4     ///< ^ and $ match at line ends too, and . does not match one
  };

  CRegex();
  ~CRegex();
  CRegex(const CRegex&) = delete;
  CRegex& operator=(const CRegex&) = delete;

  /// Compiles a pattern in place of the one before.
  /// @param flags  Flags, or-ed
  /// @return 0; -1 when the pattern is null, does not compile, or is above 4096 bytes with its repetitions
  ///         {m,n} written out: ErrorText tells why, nothing matches until the next Compile
  int Compile(const char* pattern, int flags);

  /// Looks for the first match.
  ///
  /// @param text    zero-terminated, below 2 GiB
  /// @param groups  groups[0] receives the whole match, groups[1] the first group, and so on; may be null
  /// @param count   groups that there is room for; those beyond GroupCount, or beyond 31, are -1
  /// @return 1 found; 0 not found; -1 no pattern is compiled, text is null or memory ran out
  int Match(const char* text, RegexGroup* groups, int count) const;

  /// Looks for the first match at or after a position; ^ matches at the beginning of the whole text only.
  ///
  /// @param pos  in: where to begin, 0 at first; out: where the next call shall begin. An empty match moves
  ///             it one byte further than its end, so that a loop ends. Unchanged when nothing is found
  /// @return as Match; 0 when pos lies outside the text
  int MatchNext(const char* text, RegexGroup* groups, int count, int& pos) const;

  /// @return groups of the compiled pattern, the whole match not counted; 0 when there is none
  int GroupCount() const;

  /// @return why the last Compile failed; an empty text when it did not. Valid until the next Compile
  const char* ErrorText() const;

private:
  struct Private;
  Private* m_private; ///< null when memory ran out: nothing compiles then
};
