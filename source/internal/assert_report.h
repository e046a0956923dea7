#pragma once

/// Severity word at the head of an assertion report.
enum class AssertLevel
{
  Warning,
  Error
};

/// Writes a failed precondition to standard error and flushes it:
/// "  >LEVEL, assert failed (file:line)\n  >errno : N, text\n\n".
///
/// @param level  printed as "WARNING" or "ERROR"
/// @param file   source path relative to the repository (see DEVCOMM_ASSERT_REPORT)
/// @param line   source line
///
/// Reports the errno of the call, and leaves errno as it was. Any thread.
void assert_report(AssertLevel level, const char* file, int line);

/// Reports a failed precondition at the place of the call; reporting is all it does.
#define DEVCOMM_ASSERT_REPORT(level) assert_report(AssertLevel::level, __FILE__, __LINE__)
