#include "internal/assert_report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

// strerror_r comes in two shapes: POSIX returns int and fills the buffer, GNU returns the text.
[[maybe_unused]] const char* error_text(int result, const char* buffer)
{
  return result == 0 ? buffer : "";
}

[[maybe_unused]] const char* error_text(const char* result, const char* /*buffer*/)
{
  return result;
}

} // namespace

void assert_report(AssertLevel level, const char* file, int line)
{
  const int error = errno;
  char buffer[32] = {};
  const char* text = error_text(strerror_r(error, buffer, sizeof buffer), buffer);
  fprintf(stderr, "  >%s, assert failed (%s:%d)\n  >errno : %d, %.31s\n\n",
          level == AssertLevel::Error ? "ERROR" : "WARNING", file, line, error, text);
  fflush(stderr);
  errno = error;
}
