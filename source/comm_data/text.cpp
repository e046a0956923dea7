#include <devcomm/text.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace
{

#if defined(__x86_64__) || defined(__i386__)

#define AVX2_TARGET __attribute__((target("avx2")))

// 0xFF for each of the 32 places from p on that holds the byte.
AVX2_TARGET inline __m256i places_of(const char* p, __m256i byte)
{
  return _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), byte);
}

// Tries 32 places at once: only those where four bytes of the text agree are compared in full. A buffer made
// to agree too often is left to the C library's search, whose time stays linear.
// @return the place found, or the first one not tried
AVX2_TARGET const char* find_avx2(const char* buf, size_t len, const char* what, size_t what_len)
{
  const size_t second = what_len / 3;
  const size_t third = what_len * 2 / 3;
  const size_t last = what_len - 1;
  const __m256i byte0 = _mm256_set1_epi8(what[0]);
  const __m256i byte1 = _mm256_set1_epi8(what[second]);
  const __m256i byte2 = _mm256_set1_epi8(what[third]);
  const __m256i byte3 = _mm256_set1_epi8(what[last]);

  const char* at = buf;
  const char* const end = buf + len;
  size_t compared = 0; // bytes, at most
  while (static_cast<size_t>(end - at) >= last + 32 && compared <= 4096 + 2 * static_cast<size_t>(at - buf))
  {
    const __m256i outer = _mm256_and_si256(places_of(at, byte0), places_of(at + last, byte3));
    const __m256i inner = _mm256_and_si256(places_of(at + second, byte1), places_of(at + third, byte2));
    auto mask = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_and_si256(outer, inner)));
    for (; mask != 0; mask &= mask - 1)
    {
      const char* candidate = at + __builtin_ctz(mask);
      if (memcmp(candidate, what, what_len) == 0)
      {
        return candidate;
      }
      compared += what_len;
    }
    at += 32;
  }
  return at;
}

#endif

const char* find_bytes(const char* buf, size_t len, const char* what, size_t what_len)
{
  if (what_len == 1)
  {
    return static_cast<const char*>(memchr(buf, what[0], len));
  }
  const char* from = buf;
#if defined(__x86_64__) || defined(__i386__)
  // Looked up by hand: a caller that runs before this library's constructors would find no features, for good.
  static const bool has_avx2 = (__builtin_cpu_init(), __builtin_cpu_supports("avx2") != 0);
  if (has_avx2)
  {
    from = find_avx2(buf, len, what, what_len);
  }
#endif
  return static_cast<const char*>(memmem(from, static_cast<size_t>(buf + len - from), what, what_len));
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
