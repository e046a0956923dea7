#include <devcomm/sqlite_access.h>

#include "comm_storage/sqlite_table.h"

#include <cstdio>
#include <sqlite3.h>

namespace
{

void print_error(int code)
{
  printf("error:%s\n", errorCode2String(code));
}

int prepare(sqlite3* db, const char* sql, sqlite3_stmt** statement)
{
  *statement = nullptr;
  return sqlite3_prepare_v2(db, sql, -1, statement, nullptr); // refuses null arguments itself
}

} // namespace

SQLite::~SQLite()
{
  Close();
}

bool SQLite::Open(const char* path)
{
  if (path == nullptr)
  {
    return false;
  }
  Close();
  // The handle of a failed opening is kept: it tells the error, and Close frees it.
  return sqlite3_open_v2(path, &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK;
}

void SQLite::Close()
{
  if (m_db != nullptr)
  {
    sqlite3_close_v2(m_db);
    m_db = nullptr;
  }
}

bool SQLite::SqliteOpEx(const char* sql)
{
  if (sql == nullptr)
  {
    return false;
  }
  sqlite3_stmt* statement = nullptr;
  const int prepared = prepare(m_db, sql, &statement);
  if (prepared != SQLITE_OK)
  {
    print_error(prepared);
    return false;
  }
  sqlite3_step(statement); // its failure is finalising's result
  return sqlite3_finalize(statement) == SQLITE_OK;
}

bool SQLite::SqliteOp(const char* sql, int (*callback)(void*, int, char**, char**))
{
  return sql != nullptr && callback != nullptr && run(sql, callback);
}

bool SQLite::SqliteOp(const char* sql, int* rows, int* cols)
{
  char** table = nullptr;
  int rowCount = 0;
  int colCount = 0;
  const bool counted = sql != nullptr && query_table(m_db, sql, &table, &rowCount, &colCount) == SQLITE_OK;
  sqlite3_free_table(table);
  if (rows != nullptr)
  {
    *rows = rowCount;
  }
  if (cols != nullptr)
  {
    *cols = colCount;
  }
  return counted;
}

SQLiteReader SQLite::SqliteOp(const char* sql, bool& ok)
{
  sqlite3_stmt* statement = nullptr;
  if (sql != nullptr)
  {
    const int prepared = prepare(m_db, sql, &statement);
    if (prepared != SQLITE_OK)
    {
      print_error(prepared);
    }
  }
  ok = true; // also after a failure: callers see that in the first Read
  return SQLiteReader(statement);
}

bool SQLite::SqliteOpEx(SQLiteCommand* cmd)
{
  return cmd != nullptr && cmd->Excute();
}

bool SQLite::BeginTransaction()
{
  return run("BEGIN TRANSACTION;", nullptr);
}

bool SQLite::CommitTransaction()
{
  return run("COMMIT TRANSACTION;", nullptr);
}

bool SQLite::RollbackTransaction()
{
  return run("ROLLBACK  TRANSACTION;", nullptr); // two blanks: trace logs are searched for this text
}

const char* SQLite::GetLastErrorMsg()
{
  return sqlite3_errmsg(m_db);
}

bool SQLite::run(const char* sql, int (*callback)(void*, int, char**, char**))
{
  const int code = sqlite3_exec(m_db, sql, callback, nullptr, nullptr);
  if (code != SQLITE_OK)
  {
    print_error(code);
  }
  return code == SQLITE_OK;
}

SQLiteReader::~SQLiteReader()
{
  Close();
}

SQLiteReader::SQLiteReader(SQLiteReader&& other) noexcept : m_statement(other.m_statement)
{
  other.m_statement = nullptr;
}

SQLiteReader& SQLiteReader::operator=(SQLiteReader&& other) noexcept
{
  if (this != &other)
  {
    Close();
    m_statement = other.m_statement;
    other.m_statement = nullptr;
  }
  return *this;
}

bool SQLiteReader::Read()
{
  if (m_statement == nullptr)
  {
    return false;
  }
  const int code = sqlite3_step(m_statement);
  if (code != SQLITE_ROW && code != SQLITE_DONE)
  {
    print_error(code);
  }
  return code == SQLITE_ROW;
}

int SQLiteReader::ColumnCount()
{
  return m_statement == nullptr ? 0 : sqlite3_column_count(m_statement);
}

const char* SQLiteReader::GetName(int col)
{
  return m_statement == nullptr ? nullptr : sqlite3_column_name(m_statement, col);
}

int SQLiteReader::GetDataType(int col)
{
  return m_statement == nullptr ? SQLITE_NULL : sqlite3_column_type(m_statement, col);
}

const char* SQLiteReader::GetStringValue(int col)
{
  return m_statement == nullptr ? nullptr
                                : reinterpret_cast<const char*>(sqlite3_column_text(m_statement, col));
}

int SQLiteReader::GetIntValue(int col)
{
  return m_statement == nullptr ? 0 : sqlite3_column_int(m_statement, col);
}

long long SQLiteReader::GetInt64Value(int col)
{
  return m_statement == nullptr ? 0 : sqlite3_column_int64(m_statement, col);
}

double SQLiteReader::GetFloatValue(int col)
{
  return m_statement == nullptr ? 0 : sqlite3_column_double(m_statement, col);
}

const unsigned char* SQLiteReader::GetBlobValue(int col, int& len)
{
  if (m_statement == nullptr)
  {
    len = 0;
    return nullptr;
  }
  len = sqlite3_column_bytes(m_statement, col);
  return static_cast<const unsigned char*>(sqlite3_column_blob(m_statement, col));
}

void SQLiteReader::Close()
{
  sqlite3_finalize(m_statement);
  m_statement = nullptr;
}

SQLiteCommand::SQLiteCommand(SQLite* db, const char* sql) : m_db(db)
{
  SetCommandText(sql);
}

SQLiteCommand::SQLiteCommand(SQLiteCommand&& other) noexcept
    : m_db(other.m_db), m_statement(other.m_statement)
{
  other.m_statement = nullptr;
}

bool SQLiteCommand::SetCommandText(const char* sql)
{
  Clear();
  return m_db != nullptr && prepare(m_db->m_db, sql, &m_statement) == SQLITE_OK;
}

bool SQLiteCommand::BindParam(int index, const char* text)
{
  return sqlite3_bind_text(m_statement, index, text, -1, SQLITE_TRANSIENT) == SQLITE_OK;
}

bool SQLiteCommand::BindParam(int index, int value)
{
  return sqlite3_bind_int(m_statement, index, value) == SQLITE_OK;
}

bool SQLiteCommand::BindParam(int index, double value)
{
  return sqlite3_bind_double(m_statement, index, value) == SQLITE_OK;
}

bool SQLiteCommand::BindParam(int index, const unsigned char* data, int len)
{
  return len >= 0 && sqlite3_bind_blob(m_statement, index, data, len, SQLITE_STATIC) == SQLITE_OK;
}

bool SQLiteCommand::Excute()
{
  if (m_statement == nullptr)
  {
    return false; // resetting nothing would look like success
  }
  sqlite3_step(m_statement); // its failure is the reset's result
  return sqlite3_reset(m_statement) == SQLITE_OK;
}

void SQLiteCommand::Clear()
{
  sqlite3_finalize(m_statement);
  m_statement = nullptr;
}
