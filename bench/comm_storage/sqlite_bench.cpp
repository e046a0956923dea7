// A hundred thousand rows through the classes and through SQLite's own interface. The database lies in memory,
// so that no disk hides what the classes cost.

#include "comm_data/rounds.h"

#include <devcomm/sqlite_access.h>

#include <cstdio>
#include <sqlite3.h>

namespace
{

constexpr int rows = 100000;
constexpr char schema[] = "CREATE TABLE fix (time INTEGER, lat REAL, note TEXT, raw BLOB)";
constexpr char insertText[] = "INSERT INTO fix VALUES (?, ?, ?, ?)";
constexpr char selectText[] = "SELECT time, lat, note, raw FROM fix";
constexpr char note[] = "48 07.038 N 011 31.000 E";
constexpr unsigned char raw[64] = {1, 2, 3};

void print_rows(const char* what, Medians times)
{
  printf("| %s | the raw C interface | %.2f | %.2f, %.2f million rows/s |\n", what, times.ratio,
         rows / times.ours / 1e6, rows / times.theirs / 1e6);
  fflush(stdout);
}

void insert_by_class(SQLite& db)
{
  db.Open(":memory:"); // closes the one before
  db.SqliteOpEx(schema);
  SQLiteCommand insert(&db, insertText);
  db.BeginTransaction();
  for (int i = 0; i < rows; ++i)
  {
    insert.BindParam(1, i);
    insert.BindParam(2, 48.0 + i);
    insert.BindParam(3, note);
    insert.BindParam(4, raw, sizeof raw);
    insert.Excute();
  }
  db.CommitTransaction();
  insert.Clear();
}

void insert_by_hand(sqlite3*& db)
{
  sqlite3_close_v2(db);
  sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  sqlite3_exec(db, schema, nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, insertText, -1, &insert, nullptr);
  sqlite3_exec(db, "BEGIN TRANSACTION;", nullptr, nullptr, nullptr);
  for (int i = 0; i < rows; ++i)
  {
    sqlite3_bind_int(insert, 1, i);
    sqlite3_bind_double(insert, 2, 48.0 + i);
    sqlite3_bind_text(insert, 3, note, -1, SQLITE_TRANSIENT);
    sqlite3_bind_blob(insert, 4, raw, sizeof raw, SQLITE_STATIC);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_exec(db, "COMMIT TRANSACTION;", nullptr, nullptr, nullptr);
  sqlite3_finalize(insert);
}

long long read_by_class(SQLite& db)
{
  bool ok = false;
  long long sum = 0;
  SQLiteReader reader = db.SqliteOp(selectText, ok);
  while (reader.Read())
  {
    int len = 0;
    sum += reader.GetInt64Value(0) + static_cast<long long>(reader.GetFloatValue(1));
    sum += reader.GetStringValue(2)[1] + reader.GetBlobValue(3, len)[2] + len;
  }
  return sum;
}

long long read_by_hand(sqlite3* db)
{
  long long sum = 0;
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, selectText, -1, &statement, nullptr);
  while (sqlite3_step(statement) == SQLITE_ROW)
  {
    sum += sqlite3_column_int64(statement, 0) + static_cast<long long>(sqlite3_column_double(statement, 1));
    const int len = sqlite3_column_bytes(statement, 3);
    sum += sqlite3_column_text(statement, 2)[1] +
           static_cast<const unsigned char*>(sqlite3_column_blob(statement, 3))[2] + len;
  }
  sqlite3_finalize(statement);
  return sum;
}

} // namespace

int main()
{
  SQLite db;
  sqlite3* byHand = nullptr;
  const Medians inserts = alternate(
      15, [&] { insert_by_class(db); }, [&] { insert_by_hand(byHand); });
  print_rows("`SQLiteCommand`, 100,000 rows in one transaction", inserts);

  long long sums[2] = {};
  const Medians reads = alternate(
      31, [&] { sums[0] = read_by_class(db); }, [&] { sums[1] = read_by_hand(byHand); });
  print_rows("`SQLiteReader`, reading them back", reads);
  sqlite3_close_v2(byHand);
  return sums[0] == sums[1] && sums[0] != 0 ? 0 : 1;
}
