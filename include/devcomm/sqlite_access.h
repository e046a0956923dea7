#pragma once

/// @file
/// SQLite 3 in two styles: small classes for a connection, a query's rows and a prepared statement, and free
/// functions on a handle that the caller holds. Goes together with <sqlite3.h>, in either order, and needs none
/// of it.
///
/// @code
/// SQLite db;
/// db.Open("/data/track.db");
/// db.SqliteOpEx("CREATE TABLE IF NOT EXISTS fix (time INTEGER, lat REAL)");
/// SQLiteCommand insert(&db, "INSERT INTO fix VALUES (?, ?)");
/// insert.BindParam(1, 1700000000);
/// insert.BindParam(2, 48.137);
/// insert.Excute();
/// insert.Clear();
/// @endcode
///
/// Threads: nothing is locked here, SQLite's own serialisation applies: a connection may be shared, a reader or
/// a command belongs to one thread at a time. Nobody waits for a database that another process holds: such a
/// call fails at once (sqlite3_busy_timeout of <sqlite3.h> changes that for handles of the free functions).
/// Diagnostics go to standard output. SQL text and paths are UTF-8.

#include <devcomm/export.h>

struct sqlite3;
struct sqlite3_stmt;

class SQLiteCommand;
class SQLiteReader;

/// @param code  a SQLite primary result code
/// @return its text, in static storage; "UNKNOWN_ERROR" for any other number, extended codes among them
DEVCOMM_API const char* errorCode2String(int code);

/// A connection. Every call on a closed one fails like a bad statement.
///
/// Readers and commands may outlive it: the database file stays open until the last of their statements is
/// released.
class DEVCOMM_API SQLite
{
public:
  SQLite() = default;

  /// As Close().
  ~SQLite();

  SQLite(const SQLite&) = delete;
  SQLite& operator=(const SQLite&) = delete;

  /// Opens a database file for reading and writing and creates it when it is missing. A file that may only be
  /// read is opened so, and writing to it fails. What the file holds is looked at by the first statement.
  ///
  /// @return true on success; false, with the connection as it was, for a null path. After another failure only
  ///         GetLastErrorMsg works
  ///
  /// An open connection is closed first.
  bool Open(const char* path);

  /// Ends the connection; a transaction that is not committed is rolled back as soon as no reader or command
  /// uses it. Closing a closed one does nothing.
  void Close();

  /// Runs one statement and throws its rows away; what follows it in the text is ignored.
  ///
  /// @return true when it ran to its end or to its first row; false when it did not prepare (with a line
  ///         "error:..."), when running it failed (without), or sql is null
  bool SqliteOpEx(const char* sql);

  /// Runs any number of statements.
  ///
  /// @param callback  called on this thread for each row with null, the number of columns, their values as texts
  ///                  (null for NULL) and their names, which live until it returns; a result other than 0 stops
  ///                  the run. Not null
  /// @return true on success; false after a line "error:...", also when the callback stopped it, and, without a
  ///         line, for a null argument
  bool SqliteOp(const char* sql, int (*callback)(void*, int, char**, char**));

  /// Counts what a query gives. All rows are held in memory for a moment.
  ///
  /// @param rows  receives the number of rows, without names; 0 on failure; may be null
  /// @param cols  receives the number of columns, 0 when there are no rows; may be null
  /// @return true on success; false after a line "query SQL : ... failed!...", and, without a line, when sql is
  ///         null
  bool SqliteOp(const char* sql, int* rows, int* cols);

  /// Starts a query.
  ///
  /// @param ok  set to true in every case, a null sql and a text that does not prepare among them: a failure
  ///            shows in the first Read of the result, which gives false. Callers rely on it
  /// @return reader before its first row
  SQLiteReader SqliteOp(const char* sql, bool& ok);

  /// @return result of cmd->Excute(); false for null
  bool SqliteOpEx(SQLiteCommand* cmd);

  /// @return true; false after a line "error:...", for instance when a transaction is open already. The lock on
  ///         the file is taken by the first statement, not here
  bool BeginTransaction();

  /// @return true; false after a line "error:...". When the database is busy the transaction stays open and the
  ///         call may be repeated
  bool CommitTransaction();

  /// @return true; false after a line "error:...", for instance when no transaction is open
  bool RollbackTransaction();

  /// @return what SQLite says about the connection's last call, valid until the next one; never null
  const char* GetLastErrorMsg();

private:
  friend class SQLiteCommand;

  bool run(const char* sql, int (*callback)(void*, int, char**, char**));

  sqlite3* m_db = nullptr;
};

/// The rows of one query, one at a time. Columns count from 0.
///
/// Texts and blobs belong to the reader and live until the next Read or Close, or until another getter asks the
/// same column for another type. Values are converted as SQLite does it; of a column that does not exist, and
/// while no row is there, they are null or 0.
class DEVCOMM_API SQLiteReader
{
public:
  /// @param statement  taken over, finalised with the reader; may be null
  explicit SQLiteReader(sqlite3_stmt* statement) : m_statement(statement) {}

  /// As Close().
  ~SQLiteReader();

  SQLiteReader(SQLiteReader&& other) noexcept;
  SQLiteReader& operator=(SQLiteReader&& other) noexcept;
  SQLiteReader(const SQLiteReader&) = delete;
  SQLiteReader& operator=(const SQLiteReader&) = delete;

  /// Steps to the next row.
  ///
  /// @return true when there is one; false after the last one and without a statement, and on an error after a
  ///         line "error:...". A Read after a false one starts the query again
  bool Read();

  /// @return columns of the query, known before the first Read; 0 without a statement
  int ColumnCount();

  /// @return column's name, or null; lives until Close
  const char* GetName(int col);

  /// @return 1 integer, 2 float, 3 text, 4 blob, 5 NULL (SQLITE_INTEGER ... SQLITE_NULL), as stored
  int GetDataType(int col);

  /// @return zero-terminated UTF-8 text; null for NULL
  const char* GetStringValue(int col);

  /// @return the low 32 bits of the integer
  int GetIntValue(int col);
  long long GetInt64Value(int col);
  double GetFloatValue(int col);

  /// @param len  receives the number of bytes
  /// @return the bytes; null for NULL and for an empty blob
  const unsigned char* GetBlobValue(int col, int& len);

  /// Releases the statement and the locks of its query. Closing a closed one does nothing.
  void Close();

private:
  sqlite3_stmt* m_statement;
};

/// A statement prepared once and run many times, each time with other parameters. Parameters ("?") count from 1;
/// one that was never bound is NULL, and bindings stay for later runs. What fails to bind gives false and
/// changes nothing.
///
/// Call Clear at the end: the destructor does not release the statement, and a connection that is closed
/// meanwhile keeps its file open for it.
class DEVCOMM_API SQLiteCommand
{
public:
  /// @param db  connection used by SetCommandText, which the command does not own
  explicit SQLiteCommand(SQLite* db) : m_db(db) {}

  /// As above, then SetCommandText(sql), whose failure shows in BindParam and Excute.
  SQLiteCommand(SQLite* db, const char* sql);

  /// Releases nothing; see Clear.
  ~SQLiteCommand() = default;

  SQLiteCommand(SQLiteCommand&& other) noexcept;
  SQLiteCommand& operator=(SQLiteCommand&&) = delete;
  SQLiteCommand(const SQLiteCommand&) = delete;
  SQLiteCommand& operator=(const SQLiteCommand&) = delete;

  /// Prepares the first statement of the text. The one prepared before is released in any case.
  ///
  /// @return false when it does not prepare, or without a text or an open connection
  bool SetCommandText(const char* sql);

  /// @param text  zero-terminated UTF-8, copied; null binds NULL
  bool BindParam(int index, const char* text);
  bool BindParam(int index, int value);
  bool BindParam(int index, double value);

  /// @param data  not copied: lives until Excute, and through every further one that finds it still bound; null
  ///              binds NULL
  /// @param len   bytes; negative gives false
  bool BindParam(int index, const unsigned char* data, int len);

  /// Runs the statement, to its first row when it has rows, and makes it ready for the next bindings.
  ///
  /// @return false when running it failed, and when no statement is prepared
  bool Excute();

  /// Releases the statement. Clearing twice does nothing.
  void Clear();

private:
  SQLite* m_db;
  sqlite3_stmt* m_statement = nullptr;
};

/// As SQLite's own function of this name, which it takes the place of in a process that finds the library first
/// (linked before SQLite, or preloaded), callers in C included.
///
/// @param path  database file, opened for reading and writing and created when it is missing
/// @param db    receives the handle, also after a failure, when it tells the error and must be closed all the
///              same; null when there is none
/// @return SQLite's result code, after a line "open the ... db file failed!..." when not 0; -1 after a line
///         "open db param input err" for a null argument
extern "C" DEVCOMM_API int sqlite3_open(const char* path, sqlite3** db);

/// Closes a handle and sets it to null, also on failure.
///
/// @param db  *db may be null
/// @return SQLite's result code, after a line "Close db failed!..." when not 0; -1 after a line for a null db.
///         5 (SQLITE_BUSY): statements are not finalised yet, and the connection stays open for them; who kept a
///         copy of the handle can close it later
DEVCOMM_API int sqlite3_close(sqlite3** db);

/// Runs any number of statements and throws their rows away.
///
/// @return SQLite's result code, after a line "Exec sql : ... failed!..." when not 0; -1 after a line
///         "exec db param input err" for a null argument
DEVCOMM_API int sqlite3_exec_sql(sqlite3** db, const char* sql);

/// Runs a query and keeps all its rows in memory.
///
/// @param result  receives (rows + 1) x cols texts, row by row, names first, null for NULL; the caller frees it
///                with sqlite3_free_query, also after a failure
/// @param rows    receives the number of rows, without the names; 0 on failure
/// @param cols    receives the number of columns; 0 when there are no rows
/// @return SQLite's result code, after a line "query SQL : ... failed!..." when not 0; -1 after a line
///         "query db param input err" for a null argument
DEVCOMM_API int sqlite3_query(sqlite3** db, const char* sql, char*** result, int* rows, int* cols);

/// Frees what sqlite3_query gave; once, as *result is left as it was.
///
/// @return 0; -1 after a line "free db param input err " for null
DEVCOMM_API int sqlite3_free_query(char*** result);
