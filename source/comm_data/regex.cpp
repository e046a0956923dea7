#include <devcomm/text.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <regex.h>

namespace
{

int library_flags(int flags)
{
  return ((flags & CRegex::Extended) != 0 ? REG_EXTENDED : 0) |
         ((flags & CRegex::IgnoreCase) != 0 ? REG_ICASE : 0) |
         ((flags & CRegex::NewLine) != 0 ? REG_NEWLINE : 0);
}

// The most times that the interval after an opening brace repeats what stands before it.
size_t repetitions(const char* interval)
{
  constexpr unsigned long TooMany = 1UL << 16; // of itself more than the C library takes
  char* end = nullptr;
  const unsigned long least = strtoul(interval, &end, 10);
  const unsigned long most = *end == ',' ? strtoul(end + 1, nullptr, 10) : 0;
  return std::min(std::max({least, most, 1UL}), TooMany);
}

// The C library writes repetitions out and then compiles recursively, so that (a?){30000} or as many
// parentheses overflow the stack. An interval after a group may repeat everything, another one character.
bool is_too_big(const char* pattern)
{
  constexpr size_t Most = 4096;
  size_t size = strlen(pattern);
  size_t factor = 1;
  for (const char* brace = strchr(pattern, '{'); brace != nullptr && size * factor <= Most;
       brace = strchr(brace + 1, '{'))
  {
    const char* repeated = brace;
    while (repeated > pattern && repeated[-1] == '\\')
    {
      --repeated;
    }
    if (repeated > pattern && strchr(")}*+?", repeated[-1]) != nullptr)
    {
      factor *= repetitions(brace + 1);
    }
    else
    {
      size += repetitions(brace + 1);
    }
  }
  return size > Most || size * factor > Most;
}

// Matches text[start .. length-1]; the offsets found count from the beginning of the text.
int run(const regex_t* pattern, const char* text, int start, int length, regmatch_t* found, size_t count)
{
  const int middle = start > 0 ? REG_NOTBOL : 0;
#ifdef REG_STARTEND
  found[0].rm_so = start;
  found[0].rm_eo = length;
  return regexec(pattern, text, count, found, REG_STARTEND | middle);
#else
  (void)length;
  const int result = regexec(pattern, text + start, count, found, middle);
  for (size_t i = 0; result == 0 && i < count && start > 0; ++i)
  {
    found[i].rm_so += found[i].rm_so < 0 ? 0 : start;
    found[i].rm_eo += found[i].rm_eo < 0 ? 0 : start;
  }
  return result;
#endif
}

} // namespace

struct CRegex::Private
{
  regex_t pattern;
  bool compiled;
  char error[256];
};

CRegex::CRegex() : m_private(new (std::nothrow) Private()) {}

CRegex::~CRegex()
{
  if (m_private != nullptr && m_private->compiled)
  {
    regfree(&m_private->pattern);
  }
  delete m_private;
}

int CRegex::Compile(const char* pattern, int flags)
{
  if (m_private == nullptr)
  {
    return -1;
  }
  if (m_private->compiled)
  {
    regfree(&m_private->pattern);
    m_private->compiled = false;
  }
  int error = REG_BADPAT;
  if (pattern != nullptr)
  {
    error = is_too_big(pattern) ? REG_ESPACE : regcomp(&m_private->pattern, pattern, library_flags(flags));
  }
  m_private->error[0] = '\0';
  if (error != 0)
  {
    regerror(error, nullptr, m_private->error, sizeof m_private->error);
    return -1;
  }
  m_private->compiled = true;
  return 0;
}

int CRegex::Match(const char* text, RegexGroup* groups, int count) const
{
  int pos = 0;
  return MatchNext(text, groups, count, pos);
}

int CRegex::MatchNext(const char* text, RegexGroup* groups, int count, int& pos) const
{
  constexpr int MostGroups = 32; // the whole match and 31 groups
  if (m_private == nullptr || !m_private->compiled || text == nullptr)
  {
    return -1;
  }
  const size_t length = strlen(text);
  if (pos < 0 || length >= INT_MAX || static_cast<size_t>(pos) > length)
  {
    return 0;
  }
  regmatch_t found[MostGroups];
  const int wanted = groups == nullptr || count < 1 ? 1 : count < MostGroups ? count : MostGroups;
  const int result =
      run(&m_private->pattern, text, pos, static_cast<int>(length), found, static_cast<size_t>(wanted));
  if (result != 0)
  {
    return result == REG_NOMATCH ? 0 : -1;
  }
  for (int i = 0; groups != nullptr && i < count; ++i)
  {
    groups[i] = i < wanted ? RegexGroup{found[i].rm_so, found[i].rm_eo} : RegexGroup{-1, -1};
  }
  pos = found[0].rm_eo + (found[0].rm_so == found[0].rm_eo ? 1 : 0);
  return 1;
}

int CRegex::GroupCount() const
{
  return m_private != nullptr && m_private->compiled ? static_cast<int>(m_private->pattern.re_nsub) : 0;
}

const char* CRegex::ErrorText() const
{
  return m_private != nullptr ? m_private->error : "out of memory";
}
