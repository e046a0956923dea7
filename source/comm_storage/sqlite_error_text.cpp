#include <devcomm/sqlite_access.h>

#include <sqlite3.h>

const char* errorCode2String(int code)
{
  // In the order of the codes, from 0. Two texts end with a blank; log filters know them so.
  static const char* const texts[] = {
      "Successful result",
      "SQL error or missing database",
      "Internal logic error in SQLite ",
      "Access permission denied",
      "Callback routine requested an abort",
      "The database file is locked",
      "A table in the database is locked",
      "A malloc() failed",
      "Attempt to write a readonly database",
      "Operation terminated by sqlite3_interrupt()",
      "Some kind of disk I/O error occurred ",
      "The database disk image is malformed",
      "NOT USED. Table or record not found",
      "Insertion failed because database is full",
      "Unable to open the database file",
      "Database lock protocol error",
      "Database is empty",
      "The database schema changed",
      "String or BLOB exceeds size limit",
      "Abort due to constraint violation",
      "Data type mismatch",
      "Library used incorrectly",
      "Uses OS features not supported on host",
      "Authorization denied",
      "Auxiliary database format error",
      "2nd parameter to sqlite3_bind out of range",
      "File opened that is not a database file",
  };
  constexpr int count = sizeof texts / sizeof *texts;
  static_assert(count == SQLITE_NOTADB + 1, "one text for each code");
  if (code >= 0 && code < count)
  {
    return texts[code];
  }
  switch (code)
  {
  case SQLITE_ROW:
    return "sqlite3_step() has another row ready";
  case SQLITE_DONE:
    return "sqlite3_step() has finished executing";
  default:
    return "UNKNOWN_ERROR";
  }
}
