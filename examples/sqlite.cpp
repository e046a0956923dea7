// Stores positions in one transaction with a prepared statement and reads them back.

#include <devcomm/sqlite_access.h>

#include <cstdio>

int main()
{
  SQLite db;
  if (!db.Open(":memory:") || !db.SqliteOpEx("CREATE TABLE fix (time INTEGER, lat REAL, note TEXT)"))
  {
    return 1;
  }
  SQLiteCommand insert(&db, "INSERT INTO fix VALUES (?, ?, ?)");
  db.BeginTransaction();
  for (int second = 0; second < 5; ++second)
  {
    insert.BindParam(1, 1700000000 + second);
    insert.BindParam(2, 48.137 + 0.001 * second);
    insert.BindParam(3, second == 0 ? "start" : nullptr);
    insert.Excute();
  }
  insert.Clear();
  if (!db.CommitTransaction())
  {
    return 1;
  }

  bool ok = false;
  int rows = 0;
  SQLiteReader reader = db.SqliteOp("SELECT time, lat, note FROM fix", ok);
  for (; reader.Read(); ++rows)
  {
    const char* note = reader.GetStringValue(2);
    printf("%lld %.3f %s\n", reader.GetInt64Value(0), reader.GetFloatValue(1), note != nullptr ? note : "");
  }
  return rows == 5 ? 0 : 1;
}
