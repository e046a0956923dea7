#include <devcomm/sqlite_access.h>

#include "comm_storage/sqlite_table.h"

#include <cstdio>
#include <sqlite3.h>

namespace
{

/// The error text that a call hands back, freed at the end of the block.
class ErrorText
{
public:
  ErrorText() = default;
  ~ErrorText()
  {
    sqlite3_free(m_text);
  }
  ErrorText(const ErrorText&) = delete;
  ErrorText& operator=(const ErrorText&) = delete;

  char** out()
  {
    return &m_text;
  }

  /// Never null: SQLite hands no text back when the handle is bad or memory ran out.
  const char* text(int code) const
  {
    return m_text == nullptr ? errorCode2String(code) : m_text;
  }

private:
  char* m_text = nullptr;
};

} // namespace

int query_table(sqlite3* db, const char* sql, char*** table, int* rows, int* cols)
{
  *table = nullptr;
  *rows = 0;
  *cols = 0;
  ErrorText error;
  const int code = db == nullptr ? SQLITE_MISUSE : sqlite3_get_table(db, sql, table, rows, cols, error.out());
  if (code != SQLITE_OK)
  {
    printf("query SQL : %s failed!, ret: %d, err:%s\n", sql, code, error.text(code));
  }
  return code;
}

int sqlite3_open(const char* path, sqlite3** db)
{
  if (db != nullptr)
  {
    *db = nullptr;
  }
  if (path == nullptr || db == nullptr)
  {
    puts("open db param input err");
    return -1;
  }
  const int code = sqlite3_open_v2(path, db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (code != SQLITE_OK)
  {
    printf("open the %s db file failed!, ret is: %d\n", path, code);
  }
  return code;
}

int sqlite3_close(sqlite3** db)
{
  if (db == nullptr)
  {
    puts("close db param input err!");
    return -1;
  }
  const int code = sqlite3_close(*db);
  if (code != SQLITE_OK)
  {
    printf("Close db failed!, ret: %d\n", code);
  }
  *db = nullptr;
  return code;
}

int sqlite3_exec_sql(sqlite3** db, const char* sql)
{
  if (db == nullptr || sql == nullptr)
  {
    puts("exec db param input err");
    return -1;
  }
  ErrorText error;
  const int code = sqlite3_exec(*db, sql, nullptr, nullptr, error.out());
  if (code != SQLITE_OK)
  {
    printf("Exec sql : %s failed!, ret: %d, err:%s\n", sql, code, error.text(code));
  }
  return code;
}

int sqlite3_query(sqlite3** db, const char* sql, char*** result, int* rows, int* cols)
{
  if (db != nullptr && sql != nullptr && result != nullptr && rows != nullptr && cols != nullptr)
  {
    return query_table(*db, sql, result, rows, cols);
  }
  puts("query db param input err");
  if (result != nullptr)
  {
    *result = nullptr; // so that it can be freed
  }
  if (rows != nullptr)
  {
    *rows = 0;
  }
  if (cols != nullptr)
  {
    *cols = 0;
  }
  return -1;
}

int sqlite3_free_query(char*** result)
{
  if (result == nullptr)
  {
    puts("free db param input err ");
    return -1;
  }
  sqlite3_free_table(*result);
  return 0;
}
