#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

/**
 * One SQL statement, prepared, bound and run on one thread.
 *
 * The first failure sticks: later calls do nothing, and failed() tells it, so that it is looked at once, at the end.
 * Parameters are bound in their order. Columns count from 0 and are read after row() gave true.
 */
class Sqlite_Statement {
 public:
  Sqlite_Statement(sqlite3* db, const char* sql);
  ~Sqlite_Statement();
  Sqlite_Statement(const Sqlite_Statement&) = delete;
  Sqlite_Statement& operator=(const Sqlite_Statement&) = delete;

  Sqlite_Statement& bind(const std::string& text);
  Sqlite_Statement& bind(int64_t number);

  /// Goes to the next row of the result; false at its end and on a failure.
  bool row();
  /// Runs a statement that has no result to read; false on a failure.
  bool run();
  bool failed() const { return code_ != SQLITE_OK; }

  std::string text(int column) const;
  int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
  int code_;
  int bound_ = 0;
};
