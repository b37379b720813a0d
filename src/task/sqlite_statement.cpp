#include "task/sqlite_statement.h"

Sqlite_Statement::Sqlite_Statement(sqlite3* db, const char* sql)
    : code_(sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr)) {}

Sqlite_Statement::~Sqlite_Statement() {
  sqlite3_finalize(statement_);
}

Sqlite_Statement& Sqlite_Statement::bind(const std::string& text) {
  if (!failed())
    code_ = sqlite3_bind_text(statement_, ++bound_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  return *this;
}

Sqlite_Statement& Sqlite_Statement::bind(int64_t number) {
  if (!failed()) code_ = sqlite3_bind_int64(statement_, ++bound_, number);
  return *this;
}

bool Sqlite_Statement::row() {
  if (failed()) return false;
  const int code = sqlite3_step(statement_);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) code_ = code;
  return false;
}

bool Sqlite_Statement::run() {
  while (row()) continue;
  return !failed();
}

std::string Sqlite_Statement::text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
  return text != nullptr ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement_, column)))
                         : std::string();
}
