#include <devcomm/text.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace
{

#ifdef __SSE2__

// The C library's search skips, and skips far when the bytes sought are many and hardly repeat.
bool suits_skipping(const char* what, size_t what_len)
{
  if (what_len < 8 || what_len > 32)
  {
    return what_len > 32;
  }
  unsigned long long seen[4] = {};
  for (size_t i = 0; i < what_len; ++i)
  {
    const auto byte = static_cast<unsigned char>(what[i]);
    seen[byte / 64] |= 1ULL << byte % 64;
  }
  int different = 0;
  for (unsigned long long bits : seen)
  {
    different += __builtin_popcountll(bits);
  }
  return different > 6;
}

// One bit for each of the sixteen places from p on that holds the byte.
__m128i places_of(const char* p, __m128i byte)
{
  return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), byte);
}

// Tries sixteen places at once: only those where four bytes of the text agree are compared in full. A buffer
// made to agree too often is handed to the C library's search, whose time stays linear.
const char* find_by_vector(const char* buf, size_t len, const char* what, size_t what_len)
{
  const size_t second = what_len / 3;
  const size_t third = what_len * 2 / 3;
  const size_t last = what_len - 1;
  const __m128i byte0 = _mm_set1_epi8(what[0]);
  const __m128i byte1 = _mm_set1_epi8(what[second]);
  const __m128i byte2 = _mm_set1_epi8(what[third]);
  const __m128i byte3 = _mm_set1_epi8(what[last]);

  const char* at = buf;
  const char* const end = buf + len;
  size_t compared = 0;
  for (; static_cast<size_t>(end - at) >= last + 16; at += 16)
  {
    const __m128i outer = _mm_and_si128(places_of(at, byte0), places_of(at + last, byte3));
    const __m128i inner = _mm_and_si128(places_of(at + second, byte1), places_of(at + third, byte2));
    auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(outer, inner)));
    for (; mask != 0; mask &= mask - 1)
    {
      const char* candidate = at + __builtin_ctz(mask);
      if (memcmp(candidate, what, what_len) == 0)
      {
        return candidate;
      }
      ++compared;
    }
    if (compared > 64 + static_cast<size_t>(at - buf) / 16)
    {
      break;
    }
  }
  return static_cast<const char*>(memmem(at, static_cast<size_t>(end - at), what, what_len));
}

#endif

const char* find_bytes(const char* buf, size_t len, const char* what, size_t what_len)
{
  if (what_len == 1)
  {
    return static_cast<const char*>(memchr(buf, what[0], len));
  }
#ifdef __SSE2__
  if (!suits_skipping(what, what_len))
  {
    return find_by_vector(buf, len, what, what_len);
  }
#endif
  return static_cast<const char*>(memmem(buf, len, what, what_len));
}

void split(const char* text, const char* separator, std::vector<std::string>& list)
{
  const size_t length = strlen(separator);
  const char* next = length > 0 ? strstr(text, separator) : nullptr;
  for (; next != nullptr; next = strstr(text, separator))
  {
    list.emplace_back(text, static_cast<size_t>(next - text));
    text = next + length;
  }
  list.emplace_back(text);
}

} // namespace

char* memfind(char* buf, int len, const char* what, int whatLen)
{
  if (buf == nullptr || what == nullptr || whatLen < 1 || len < whatLen)
  {
    return nullptr;
  }
  return const_cast<char*>(find_bytes(buf, static_cast<size_t>(len), what, static_cast<size_t>(whatLen)));
}

const char* strfind_s(const char* s, const char* what)
{
  return s == nullptr || what == nullptr || *s == '\0' ? nullptr : strstr(s, what);
}

int str_split_by_char(char* s, char sep, char* field, unsigned int& pos)
{
  if (s == nullptr || field == nullptr || strnlen(s, static_cast<size_t>(pos) + 1) <= pos)
  {
    return 1;
  }
  const char* at = s + pos;
  while (*at == ' ' || *at == '\t')
  {
    ++at;
  }
  while (*at != '\0' && *at != sep)
  {
    *field++ = *at++;
  }
  *field = '\0';
  if (*at != '\0')
  {
    ++at;
  }
  pos = static_cast<unsigned int>(at - s);
  return 1;
}

char* stringcopy(const char* src, int len, char* dst, int dstSize)
{
  if (dst == nullptr || dstSize < 1)
  {
    return dst;
  }
  const int count = src == nullptr ? 0 : std::max(0, std::min(len, dstSize - 1));
  if (count > 0)
  {
    memmove(dst, src, static_cast<size_t>(count));
  }
  dst[count] = '\0';
  return dst;
}

int stringSplit(const char* text, const char* separator, std::vector<std::string>& list)
{
  list.clear();
  if (text == nullptr || *text == '\0')
  {
    return 0;
  }
  try
  {
    split(text, separator != nullptr ? separator : "", list);
  }
  catch (const std::bad_alloc&)
  {
    list.clear();
    return -1;
  }
  return static_cast<int>(list.size());
}

void printbufhex(unsigned char* buf, int len)
{
  for (int i = 0; buf != nullptr && i < len; ++i)
  {
    printf("%s%02X ", i % 16 == 0 ? "\n" : "", buf[i]);
  }
  printf("\n");
}

void printstrbuf(unsigned char* buf, int len)
{
  if (buf != nullptr && len > 0)
  {
    fwrite(buf, 1, static_cast<size_t>(len), stdout);
  }
}

int print_function_line(const char* file, const char* func, int line, const char* format, ...)
{
  char text[4096];
  const int prefix = snprintf(text, sizeof text, "%s, %s, %d: ", file != nullptr ? file : "",
                              func != nullptr ? func : "", line);
  if (format != nullptr && prefix >= 0 && prefix < static_cast<int>(sizeof text))
  {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text + prefix, sizeof text - static_cast<size_t>(prefix), format, arguments);
    va_end(arguments);
  }
  printf("%s", text);
  return 0;
}
