#pragma once

struct sqlite3;

/// What sqlite3_get_table does, with a line on standard output when it fails.
///
/// @param table  receives the rows, for sqlite3_free_table; null on failure
/// @param rows   0 on failure
/// @param cols   0 on failure
/// @return SQLite's result code
int query_table(sqlite3* db, const char* sql, char*** table, int* rows, int* cols);
