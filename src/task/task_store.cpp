#include "task/task_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "ace/Log_Msg.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"
#include "task/sqlite_statement.h"

namespace {

constexpr int schema_version = 1;
/// How long a change waits for another process that holds the database.
constexpr int busy_milliseconds = 2000;

constexpr char columns[] = "id, type, kind, state, result, created, started, finished, errors, errors_left_out";

constexpr char set_up[] = R"(
  PRAGMA locking_mode = EXCLUSIVE;
  PRAGMA journal_mode = WAL;
  PRAGMA synchronous = FULL;
  BEGIN IMMEDIATE;
  CREATE TABLE IF NOT EXISTS tasks (
    seq INTEGER PRIMARY KEY,  -- order of submission
    id TEXT NOT NULL UNIQUE,
    type TEXT NOT NULL,
    kind TEXT NOT NULL,
    state TEXT NOT NULL,
    result TEXT NOT NULL,     -- JSON object
    created INTEGER NOT NULL,
    started INTEGER NOT NULL,
    finished INTEGER NOT NULL,
    errors TEXT NOT NULL,     -- JSON array of strings
    errors_left_out INTEGER NOT NULL);
  CREATE INDEX IF NOT EXISTS tasks_finished ON tasks (finished);
  PRAGMA user_version = 1;
  COMMIT;
)";

std::string errors_text(const Task_Record& record) {
  json_spirit::Array errors;
  for (const std::string& error : record.errors) errors.emplace_back(error);
  return json_spirit::JSON_Dump(json_spirit::Value(std::move(errors)), false).str();
}

std::string result_text(const Task_Record& record) {
  return json_spirit::JSON_Dump(json_spirit::Value(record.result), false).str();
}

Task_Record read_record(const Sqlite_Statement& row) {
  Task_Record record;
  record.id = row.text(0);
  record.type = row.text(1);
  record.kind = row.text(2);
  record.state = row.text(3);
  json_spirit::Value result;
  if (json_spirit::loads_json(row.text(4).c_str(), result) && result.type() == json_spirit::obj_type)
    record.result = std::move(result.get_obj());
  record.created = row.number(5);
  record.started = row.number(6);
  record.finished = row.number(7);
  json_spirit::Value errors;
  if (json_spirit::loads_json(row.text(8).c_str(), errors) && errors.type() == json_spirit::array_type)
    for (const json_spirit::Value& error : errors.get_array())
      if (error.type() == json_spirit::str_type) record.errors.push_back(error.get_str());
  record.errors_left_out = static_cast<uint64_t>(row.number(9));
  return record;
}

bool write_record(sqlite3* db, const Task_Record& record) {
  Sqlite_Statement update(db,
                          "UPDATE tasks SET state = ?, result = ?, started = ?, finished = ?, errors = ?, "
                          "errors_left_out = ? WHERE id = ?");
  update.bind(record.state).bind(result_text(record)).bind(record.started).bind(record.finished);
  update.bind(errors_text(record)).bind(static_cast<int64_t>(record.errors_left_out)).bind(record.id);
  if (!update.run()) return false;
  if (sqlite3_changes(db) > 0) return true;

  const std::string sql = std::string("INSERT INTO tasks (") + columns + ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
  Sqlite_Statement insert(db, sql.c_str());
  insert.bind(record.id).bind(record.type).bind(record.kind).bind(record.state).bind(result_text(record));
  insert.bind(record.created).bind(record.started).bind(record.finished);
  insert.bind(errors_text(record)).bind(static_cast<int64_t>(record.errors_left_out));
  return insert.run();
}

bool read_records(Sqlite_Statement& select, std::vector<Task_Record>& records) {
  std::vector<Task_Record> found;
  while (select.row()) found.push_back(read_record(select));
  if (select.failed()) return false;
  records = std::move(found);
  return true;
}

/// What had not ended belongs to a process that is gone.
bool fail_left_tasks(sqlite3* db) {
  const std::string sql = std::string("SELECT ") + columns + " FROM tasks WHERE finished = 0";
  std::vector<Task_Record> left;
  {
    Sqlite_Statement select(db, sql.c_str());
    if (!read_records(select, left)) return false;
  }
  for (Task_Record& record : left) {
    record.errors.push_back(record.state == "running" ? "The agent ended while the task was running."
                                                      : "The agent ended before the task began to run.");
    record.state = "failed";
    record.finished = now_milliseconds();
    if (!write_record(db, record)) return false;
  }
  return true;
}

bool is_known_version(sqlite3* db) {
  Sqlite_Statement select(db, "PRAGMA user_version");
  return select.row() && select.number(0) <= schema_version;
}

/// Makes a missing file before SQLite does, which would leave it readable by all.
void make_private_file(const std::string& path) {
  const int fd = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0) ::close(fd);
}

}  // namespace

Task_Store::~Task_Store() {
  close();
}

bool Task_Store::open(const std::string& path) {
  if (!path.empty()) make_private_file(path);
  sqlite3* opened = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(path.empty() ? ":memory:" : path.c_str(), &opened, flags, nullptr);
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(opened, sqlite3_close);
  if (code == SQLITE_OK) sqlite3_busy_timeout(opened, busy_milliseconds);
  if (code != SQLITE_OK || !is_known_version(opened) ||
      sqlite3_exec(opened, set_up, nullptr, nullptr, nullptr) != SQLITE_OK || !fail_left_tasks(opened)) {
    const bool from_later = code == SQLITE_OK && sqlite3_errcode(opened) == SQLITE_OK;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to open task store '%C': %C.\n"), path.c_str(),
                      from_later ? "it was written by a later version" : sqlite3_errmsg(opened)),
                     false);
  }
  std::lock_guard<std::mutex> guard(lock_);
  sqlite3_close(db_);
  db_ = db.release();
  return true;
}

void Task_Store::close() {
  std::lock_guard<std::mutex> guard(lock_);
  sqlite3_close(db_);
  db_ = nullptr;
}

bool Task_Store::save(const Task_Record& record) {
  std::lock_guard<std::mutex> guard(lock_);
  if (db_ == nullptr) return false;
  return write_record(db_, record) || failed("save a task");
}

bool Task_Store::find(const std::string& id, Task_Record& record) {
  std::lock_guard<std::mutex> guard(lock_);
  if (db_ == nullptr) return false;
  const std::string sql = std::string("SELECT ") + columns + " FROM tasks WHERE id = ?";
  Sqlite_Statement select(db_, sql.c_str());
  if (!select.bind(id).row()) return select.failed() && failed("read a task");
  record = read_record(select);
  return true;
}

bool Task_Store::list(size_t limit, std::vector<Task_Record>& records) {
  std::lock_guard<std::mutex> guard(lock_);
  if (db_ == nullptr) return false;
  const std::string sql = std::string("SELECT ") + columns + " FROM tasks ORDER BY seq DESC LIMIT ?";
  Sqlite_Statement select(db_, sql.c_str());
  select.bind(limit == 0 ? int64_t(-1) : static_cast<int64_t>(limit));
  return read_records(select, records) || failed("list the tasks");
}

bool Task_Store::prune(size_t max_tasks, int64_t finished_before) {
  std::lock_guard<std::mutex> guard(lock_);
  if (db_ == nullptr) return false;
  Sqlite_Statement old(db_, "DELETE FROM tasks WHERE finished > 0 AND finished < ?");
  if (!old.bind(finished_before).run()) return failed("drop old tasks");
  if (max_tasks == 0) return true;
  Sqlite_Statement many(db_, "DELETE FROM tasks WHERE finished > 0 AND seq <= (SELECT max(seq) FROM tasks) - ?");
  return many.bind(static_cast<int64_t>(max_tasks)).run() || failed("drop old tasks");
}

bool Task_Store::failed(const char* what) const {
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to %C in the task store: %C.\n"), what, sqlite3_errmsg(db_)), false);
}
