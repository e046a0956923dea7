/* A C program that knows nothing of the library but links it before SQLite: the library's sqlite3_open serves it. */
#include <sqlite3.h>
#include <stdio.h>

int main(void)
{
  sqlite3* db = NULL;
  if (sqlite3_open(NULL, &db) != -1) /* SQLite's own opens a temporary database */
  {
    return fputs("SQLite's own sqlite3_open was called\n", stderr), 1;
  }
  if (sqlite3_open(":memory:", &db) != SQLITE_OK || sqlite3_exec(db, "CREATE TABLE t (a)", NULL, NULL, NULL) != 0)
  {
    return 2;
  }
  return sqlite3_close(db) == SQLITE_OK ? 0 : 3;
}
