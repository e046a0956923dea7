#include <devcomm/sqlite_access.h>

#include "comm_time/child.h"
#include "support/net_namespace.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace
{

class SQLiteAccess : public testing::Test
{
protected:
  void SetUp() override
  {
    chmod(m_folder.path.c_str(), 0755);
    ASSERT_TRUE(m_db.Open(path));
    ASSERT_TRUE(m_db.SqliteOpEx("CREATE TABLE t (a, b)"));
  }
  // Rows in the table; -1 when they cannot be read.
  int rows()
  {
    bool ok = false;
    SQLiteReader reader = m_db.SqliteOp("SELECT count(*) FROM t", ok);
    return reader.Read() ? reader.GetIntValue(0) : -1;
  }

  ScratchFolder m_folder;
  const std::string m_path = m_folder.path + "/db";
  const char* const path = m_path.c_str();
  SQLite m_db;
};

// What a call prints, followed by its result.
template <typename Call>
std::string printed(Call call)
{
  testing::internal::CaptureStdout();
  const int result = static_cast<int>(call());
  fflush(stdout);
  return testing::internal::GetCapturedStdout() + std::to_string(result);
}

int stop_at_first(void* user, int cols, char** values, char** names)
{
  EXPECT_TRUE(user == nullptr && cols == 2 && values[1] == nullptr && strcmp(names[0], "a") == 0);
  return 1;
}

} // namespace

TEST_F(SQLiteAccess, BindsEveryTypeAndReadsItBack)
{
  const unsigned char blob[] = {0, 1, 0xFF};
  SQLiteCommand insert(&m_db, "INSERT INTO t VALUES (?, ?)");
  char text[] = "caf\xC3\xA9";
  EXPECT_TRUE(insert.BindParam(1, text) && insert.BindParam(2, -7));
  text[0] = '\0'; // texts are copied
  EXPECT_TRUE(insert.Excute());
  EXPECT_TRUE(insert.BindParam(1, 0.5) && insert.BindParam(2, blob, sizeof blob) && insert.Excute());
  EXPECT_TRUE(insert.BindParam(1, static_cast<const char*>(nullptr)) && m_db.SqliteOpEx(&insert)); // 2 stays
  EXPECT_FALSE(insert.BindParam(3, 1) || insert.BindParam(0, 1.0) || insert.BindParam(1, blob, -1));
  insert.Clear();

  bool ok = false;
  SQLiteReader first = m_db.SqliteOp("SELECT a, b, 1 << 40 FROM t ORDER BY rowid", ok);
  SQLiteReader reader(std::move(first));
  EXPECT_FALSE(first.Read()); // NOLINT(bugprone-use-after-move): a reader that was moved from is closed
  EXPECT_TRUE(ok && reader.ColumnCount() == 3 && reader.GetStringValue(0) == nullptr);
  EXPECT_STREQ(reader.GetName(1), "b");
  ASSERT_TRUE(reader.Read());
  EXPECT_STREQ(reader.GetStringValue(0), "caf\xC3\xA9");
  EXPECT_TRUE(reader.GetDataType(0) == SQLITE_TEXT && reader.GetIntValue(1) == -7);
  EXPECT_TRUE(reader.GetInt64Value(2) == 1LL << 40 && reader.GetIntValue(2) == 0 &&
              reader.GetIntValue(9) == 0);
  ASSERT_TRUE(reader.Read());
  int len = -1;
  const unsigned char* bytes = reader.GetBlobValue(1, len);
  EXPECT_EQ(reader.GetFloatValue(0), 0.5);
  EXPECT_TRUE(len == 3 && memcmp(bytes, blob, 3) == 0);
  ASSERT_TRUE(reader.Read());
  EXPECT_TRUE(reader.GetDataType(0) == SQLITE_NULL && reader.GetDataType(1) == SQLITE_BLOB);
  EXPECT_FALSE(reader.Read());
  EXPECT_TRUE(reader.Read()); // from the start again
}

TEST_F(SQLiteAccess, StatementsThatFailSayWhy)
{
  const char* const bad = "SELEC";
  const std::string sqlError = "error:SQL error or missing database\n";
  EXPECT_EQ(printed([&] { return m_db.SqliteOpEx(bad); }), sqlError + "0");
  EXPECT_EQ(printed([&] { return m_db.SqliteOp(bad, stop_at_first); }), sqlError + "0");
  EXPECT_EQ(printed([&] { return m_db.SqliteOp(bad, nullptr, nullptr); }),
            "query SQL : SELEC failed!, ret: 1, err:near \"SELEC\": syntax error\n0");
  EXPECT_STREQ(m_db.GetLastErrorMsg(), "near \"SELEC\": syntax error");
  bool ok = false;
  EXPECT_EQ(printed([&] { return m_db.SqliteOp(bad, ok).Read(); }), sqlError + "0");
  EXPECT_TRUE(ok);
  EXPECT_EQ(printed([&] { return m_db.CommitTransaction(); }), sqlError + "0");
  SQLiteReader overflow = m_db.SqliteOp("SELECT abs(-9223372036854775807 - 1)", ok);
  EXPECT_EQ(printed([&] { return overflow.Read(); }), sqlError + "0");

  EXPECT_TRUE(m_db.SqliteOpEx("INSERT INTO t VALUES (1, NULL); never seen"));
  EXPECT_EQ(printed([&] { return m_db.SqliteOp("SELECT * FROM t", stop_at_first); }),
            "error:Callback routine requested an abort\n0");
  EXPECT_TRUE(m_db.SqliteOpEx("CREATE UNIQUE INDEX i ON t (a)"));
  EXPECT_EQ(printed([&] { return m_db.SqliteOpEx("INSERT INTO t VALUES (1, 2)"); }), "0");
  int count = -1;
  int cols = -1;
  EXPECT_TRUE(m_db.SqliteOp("SELECT * FROM t", &count, &cols) && count == 1 && cols == 2);
}

TEST_F(SQLiteAccess, TransactionsCommitAndRollBack)
{
  EXPECT_TRUE(m_db.BeginTransaction() && m_db.SqliteOpEx("INSERT INTO t VALUES (1, 1)") &&
              m_db.CommitTransaction());
  EXPECT_TRUE(m_db.BeginTransaction() && m_db.SqliteOpEx("INSERT INTO t VALUES (2, 2)") &&
              m_db.RollbackTransaction());
  EXPECT_TRUE(m_db.BeginTransaction() && m_db.SqliteOpEx("INSERT INTO t VALUES (3, 3)"));
  EXPECT_EQ(rows(), 2);
  EXPECT_TRUE(m_db.Open(path)); // closes the connection in the middle of the transaction
  EXPECT_EQ(rows(), 1);
}

TEST_F(SQLiteAccess, CommandsRunAgainAndAreClearedTwice)
{
  SQLiteCommand command(&m_db, "SELEC");
  EXPECT_FALSE(command.Excute() || command.BindParam(1, 1));
  EXPECT_TRUE(command.SetCommandText("INSERT INTO t VALUES (1, ?)"));
  EXPECT_TRUE(command.Excute() && command.Excute());
  EXPECT_TRUE(command.SetCommandText("INSERT INTO t VALUES (2, 2)") && command.Excute());
  EXPECT_EQ(rows(), 3);
  SQLiteCommand moved(std::move(command));
  m_db.Close();
  EXPECT_TRUE(moved.Excute()); // the statement keeps its connection alive
  moved.Clear();
  moved.Clear();
  EXPECT_FALSE(moved.Excute() || moved.SetCommandText("SELECT 1"));
  EXPECT_TRUE(m_db.Open(path));
  EXPECT_EQ(rows(), 4);
}

TEST_F(SQLiteAccess, ReadersOutliveTheirConnection)
{
  EXPECT_TRUE(m_db.SqliteOpEx("INSERT INTO t VALUES ('kept', 0)"));
  SQLiteReader reader(nullptr);
  {
    bool ok = false;
    SQLite local;
    EXPECT_TRUE(local.Open(path));
    reader = local.SqliteOp("SELECT a FROM t", ok);
  }
  EXPECT_TRUE(reader.Read());
  EXPECT_STREQ(reader.GetStringValue(0), "kept");
  reader.Close();
  reader.Close();
  int len = -1;
  EXPECT_FALSE(reader.Read() || reader.GetBlobValue(0, len) || reader.GetName(0) || reader.GetStringValue(0));
  EXPECT_TRUE(len == 0 && reader.ColumnCount() == 0 && reader.GetInt64Value(0) == 0 &&
              reader.GetFloatValue(0) == 0);
  EXPECT_TRUE(reader.GetDataType(0) == SQLITE_NULL && reader.GetIntValue(0) == 0);
}

TEST_F(SQLiteAccess, NullArgumentsAndClosedConnectionsAreRefused)
{
  const char* const none = nullptr;
  bool ok = false;
  EXPECT_FALSE(m_db.SqliteOpEx(none) || m_db.SqliteOpEx(static_cast<SQLiteCommand*>(nullptr)) ||
               m_db.SqliteOp(none, stop_at_first) || m_db.SqliteOp("SELECT 1", nullptr) ||
               m_db.SqliteOp(none, nullptr, nullptr) || m_db.SqliteOp(none, ok).Read() || m_db.Open(nullptr));
  EXPECT_TRUE(ok);
  EXPECT_EQ(rows(), 0); // still open
  SQLiteCommand homeless(nullptr, "SELECT 1");
  SQLiteCommand textless(&m_db, nullptr);
  EXPECT_FALSE(homeless.Excute() || textless.Excute());

  m_db.Close();
  EXPECT_EQ(printed([&] { return m_db.SqliteOpEx("SELECT 1"); }), "error:Library used incorrectly\n0");
  EXPECT_EQ(printed([&] { return m_db.SqliteOp("SELECT 1", nullptr, nullptr); }),
            "query SQL : SELECT 1 failed!, ret: 21, err:Library used incorrectly\n0");
  EXPECT_FALSE(m_db.BeginTransaction() || m_db.SqliteOp("SELECT 1", ok).Read());
  EXPECT_NE(m_db.GetLastErrorMsg(), nullptr);
  EXPECT_FALSE(m_db.Open("/nowhere/db"));
  EXPECT_STREQ(m_db.GetLastErrorMsg(), "unable to open database file");
  EXPECT_FALSE(m_db.SqliteOpEx("SELECT 1"));

  EXPECT_STREQ(errorCode2String(2), "Internal logic error in SQLite ");
  EXPECT_STREQ(errorCode2String(101), "sqlite3_step() has finished executing");
  EXPECT_STREQ(errorCode2String(27), "UNKNOWN_ERROR");
  EXPECT_STREQ(errorCode2String(-1), "UNKNOWN_ERROR");
}

TEST_F(SQLiteAccess, AnotherProcessHoldsTheDatabase)
{
  EXPECT_TRUE(m_db.SqliteOpEx("INSERT INTO t VALUES (1, 1)"));
  int held[2];
  ASSERT_EQ(pipe(held), 0);
  const pid_t holder = fork();
  if (holder == 0)
  {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    SQLite own;
    const bool locked = own.Open(path) && own.SqliteOpEx("BEGIN EXCLUSIVE") && write(held[1], "", 1) == 1;
    pause();
    _exit(locked ? 0 : 1);
  }
  char byte = 0;
  ASSERT_EQ(read(held[0], &byte, 1), 1);
  bool ok = false;
  SQLiteReader reader = m_db.SqliteOp("SELECT * FROM t", ok);
  EXPECT_EQ(printed([&] { return reader.Read(); }), "error:The database file is locked\n0");
  SQLiteCommand insert(&m_db, "INSERT INTO t VALUES (2, 2)");
  EXPECT_FALSE(insert.Excute());
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_TRUE(reader.Read()); // both go on without being prepared anew
  reader.Close();
  EXPECT_TRUE(insert.Excute());
  insert.Clear();
  close(held[0]);
  close(held[1]);
}

TEST_F(SQLiteAccess, DamagedFiles)
{
  EXPECT_TRUE(m_db.SqliteOpEx("INSERT INTO t VALUES (zeroblob(9000), 1)"));
  m_db.Close();
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  const std::string garbage(4096, '\x5A');
  EXPECT_EQ(pwrite(fd, garbage.data(), garbage.size(), 4096), 4096); // the table's root page
  ASSERT_TRUE(m_db.Open(path));
  EXPECT_EQ(printed([&] { return rows(); }), "error:The database disk image is malformed\n-1");
  EXPECT_EQ(pwrite(fd, garbage.data(), 100, 0), 100); // the file's head
  close(fd);
  ASSERT_TRUE(m_db.Open(path));
  EXPECT_EQ(printed([&] { return m_db.SqliteOpEx("SELECT * FROM t"); }),
            "error:File opened that is not a database file\n0");
}

TEST_F(SQLiteAccess, FullAndThenReadOnlyDisk)
{
  m_db.Close();
  const std::string result = run_in_child(
      [this]
      {
        const char* folder = m_folder.path.c_str();
        if (!enter_namespaces() || mount("tmpfs", folder, "tmpfs", 0, "size=64k") != 0)
          return 9;
        const char* const more = "INSERT INTO t VALUES (zeroblob(10000))";
        SQLite own;
        EXPECT_TRUE(own.Open(path) && own.SqliteOpEx("CREATE TABLE t (a)"));
        SQLiteCommand insert(&own, more);
        int stored = 0;
        while (stored < 100 && insert.Excute())
          ++stored;
        insert.Clear();
        EXPECT_FALSE(own.SqliteOp(more, nullptr, nullptr));
        int count = 0;
        EXPECT_TRUE(own.SqliteOp("SELECT * FROM t", &count, nullptr) && count == stored);
        own.Close();
        EXPECT_EQ(mount("tmpfs", folder, "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        EXPECT_TRUE(own.Open(path) && own.SqliteOpEx("SELECT * FROM t"));
        EXPECT_FALSE(own.SqliteOp(more, stop_at_first));
        return HasFailure() ? 1 : 0;
      });
  if (result == "9")
    GTEST_SKIP() << "no right to mount a small file system";
  EXPECT_EQ(result,
            "query SQL : INSERT INTO t VALUES (zeroblob(10000)) failed!, ret: 13, err:database or disk "
            "is full\nerror:Attempt to write a readonly database\n0");
}

TEST_F(SQLiteAccess, FreeFunctionsOnAHandle)
{
  sqlite3* db = reinterpret_cast<sqlite3*>(1);
  char** table = reinterpret_cast<char**>(1);
  int count = -1;
  int cols = -1;
  EXPECT_EQ(printed([&] { return sqlite3_open(nullptr, &db); }), "open db param input err\n-1");
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(printed([&] { return sqlite3_open(path, nullptr); }), "open db param input err\n-1");
  EXPECT_EQ(printed([&] { return sqlite3_open("/nowhere/db", &db); }),
            "open the /nowhere/db db file failed!, ret is: 14\n14");
  EXPECT_EQ(sqlite3_close(&db), 0);
  ASSERT_EQ(sqlite3_open(path, &db), 0);
  EXPECT_EQ(sqlite3_exec_sql(&db, "INSERT INTO t VALUES (1, 'x'); INSERT INTO t VALUES (2, NULL)"), 0);
  EXPECT_EQ(printed([&] { return sqlite3_exec_sql(&db, "DROP TABLE u"); }),
            "Exec sql : DROP TABLE u failed!, ret: 1, err:no such table: u\n1");
  ASSERT_EQ(sqlite3_query(&db, "SELECT * FROM t", &table, &count, &cols), 0);
  EXPECT_TRUE(count == 2 && cols == 2 && strcmp(table[1], "b") == 0 && strcmp(table[3], "x") == 0 &&
              !table[5]);
  EXPECT_EQ(sqlite3_free_query(&table), 0);
  EXPECT_EQ(printed([&] { return sqlite3_query(&db, "SELECT * FROM u", &table, &count, &cols); }),
            "query SQL : SELECT * FROM u failed!, ret: 1, err:no such table: u\n1");
  EXPECT_TRUE(table == nullptr && count == 0 && cols == 0 && sqlite3_free_query(&table) == 0);

  table = reinterpret_cast<char**>(1);
  EXPECT_EQ(printed([&] { return sqlite3_query(&db, "SELECT 1", &table, nullptr, &cols); }),
            "query db param input err\n-1");
  EXPECT_EQ(table, nullptr);
  EXPECT_EQ(printed([&] { return sqlite3_exec_sql(&db, nullptr); }), "exec db param input err\n-1");
  EXPECT_EQ(printed([] { return sqlite3_free_query(nullptr); }), "free db param input err \n-1");
  EXPECT_EQ(printed([] { return sqlite3_close(static_cast<sqlite3**>(nullptr)); }),
            "close db param input err!\n-1");

  sqlite3_stmt* open = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT 1", -1, &open, nullptr), 0);
  sqlite3* copy = db;
  EXPECT_EQ(printed([&] { return sqlite3_close(&db); }), "Close db failed!, ret: 5\n5");
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(printed([&] { return sqlite3_exec_sql(&db, "SELECT 1"); }),
            "Exec sql : SELECT 1 failed!, ret: 21, err:Library used incorrectly\n21");
  sqlite3_finalize(open);
  EXPECT_EQ(sqlite3_close(copy), 0);
}
