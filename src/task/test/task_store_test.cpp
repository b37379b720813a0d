#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "task/task_context.h"
#include "task/task_manager.h"
#include "task/test/function_handler.h"

namespace {

using namespace task_test;

bool succeed(const Object&, Object& result) {
  result["size"] = 11;
  return true;
}

bool fail(const Object&, Object&) {
  Task_Context::current()->add_error("first");
  Task_Context::current()->add_error("second");
  return false;
}

/// A manager on a database file, and what is left of it after a restart.
class Task_Store_Test : public ::testing::Test {
 protected:
  Object run(Task_Manager& manager, Function_Handler::Function function) {
    manager.register_handler("job", handler(std::move(function)));
    return wait_for_end(manager, submit(manager, "job"));
  }

  test_support::Temp_Dir dir_;
  const std::string db_ = dir_ / "tasks.db";
};

TEST_F(Task_Store_Test, Ended_tasks_read_the_same_after_a_restart) {
  Object completed;
  Object failed;
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    completed = run(manager, succeed);
    failed = run(manager, fail);
  }
  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  Object again;
  ASSERT_TRUE(manager.get(completed["id"].get_str(), again));
  EXPECT_TRUE(Value(again) == Value(completed));
  ASSERT_TRUE(manager.get(failed["id"].get_str(), again));
  EXPECT_TRUE(Value(again) == Value(failed));
  EXPECT_EQ(again["errors"].get_array().size(), 2u);
}

TEST_F(Task_Store_Test, Only_the_owner_may_read_the_file) {
  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  run(manager, succeed);
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u) << entry.path();
  }
}

TEST_F(Task_Store_Test, What_was_submitted_is_nowhere_in_the_files) {
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    std::promise<void> entered;
    std::promise<void> leave;
    manager.register_handler("job", handler([&](const Object&, Object&) {
                               entered.set_value();
                               leave.get_future().wait();
                               ACE_ERROR((LM_ERROR, ACE_TEXT("from {\"access_key\":\"canary-logged\"}\n")));
                               return false;
                             }));
    test_support::Log_Capture log;
    Object params;
    params["access_key"] = "canary-submitted";
    Object data;
    data["type"] = "backup";
    data["params"] = params;
    Object task = document("job");
    task["data"] = data;
    std::string id;
    ASSERT_TRUE(manager.submit(task, id));
    entered.get_future().wait();
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
      EXPECT_EQ(test_support::read_file(entry.path()).find("canary"), std::string::npos) << entry.path();
    leave.set_value();
    wait_for_end(manager, id);
  }
  const std::string bytes = test_support::read_file(db_);
  EXPECT_EQ(bytes.find("canary"), std::string::npos);
  EXPECT_NE(bytes.find("access_key"), std::string::npos);  // the error line itself is there
  EXPECT_NE(bytes.find("backup"), std::string::npos);
}

TEST_F(Task_Store_Test, After_a_kill_what_was_running_or_queued_reads_failed_and_says_so) {
  int ids[2];
  ASSERT_EQ(pipe(ids), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Task_Manager manager;
    manager.open(db_);
    std::promise<void> entered;
    manager.register_handler("job", handler(succeed));
    std::string text = wait_for_end(manager, submit(manager, "job"))["id"].get_str();
    manager.register_handler("job", handler([&](const Object&, Object&) {
                               entered.set_value();
                               pause();
                               return true;
                             }));
    text += submit(manager, "job");
    entered.get_future().wait();
    text += submit(manager, "job");
    if (write(ids[1], text.data(), text.size()) < 0) _exit(1);
    pause();
  }
  constexpr size_t id_length = 36;
  std::string text(3 * id_length, '\0');
  size_t have = 0;
  while (have < text.size()) {
    const ssize_t got = read(ids[0], text.data() + have, text.size() - have);
    ASSERT_GT(got, 0);
    have += static_cast<size_t>(got);
  }
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  close(ids[0]);
  close(ids[1]);

  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  Object task;
  ASSERT_TRUE(manager.get(text.substr(0, id_length), task));
  EXPECT_EQ(task["state"].get_str(), "completed");
  EXPECT_EQ(task["result"].get_obj()["size"].get_int(), 11);
  ASSERT_TRUE(manager.get(text.substr(id_length, id_length), task));
  EXPECT_EQ(task["state"].get_str(), "failed");
  EXPECT_FALSE(task["started"].is_null());
  EXPECT_EQ(task["errors"].get_array().back().get_str(), "The agent ended while the task was running.");
  ASSERT_TRUE(manager.get(text.substr(2 * id_length), task));
  EXPECT_EQ(task["state"].get_str(), "failed");
  EXPECT_TRUE(task["started"].is_null());
  EXPECT_FALSE(task["finished"].is_null());
  EXPECT_EQ(task["errors"].get_array().back().get_str(), "The agent ended before the task began to run.");
}

TEST_F(Task_Store_Test, A_close_fails_what_is_queued_and_lets_the_running_task_end) {
  std::string running;
  std::string queued;
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    std::promise<void> entered;
    std::promise<void> leave;
    manager.register_handler("job", handler([&](const Object&, Object&) {
                               entered.set_value();
                               leave.get_future().wait();
                               return true;
                             }));
    running = submit(manager, "job");
    entered.get_future().wait();
    queued = submit(manager, "job");
    bool asked = false;
    manager.close([&] {
      if (!asked) leave.set_value();
      asked = true;
    });
  }
  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  EXPECT_EQ(state_of(manager, running), "completed");
  Object task;
  ASSERT_TRUE(manager.get(queued, task));
  EXPECT_EQ(task["state"].get_str(), "failed");
  EXPECT_EQ(task["errors"].get_array().back().get_str(), "The agent ended before the task began to run.");
}

TEST_F(Task_Store_Test, A_task_submitted_during_a_close_is_run_or_failed_or_refused_but_never_lost) {
  test_support::Log_Capture log;
  std::atomic<int> runs{0};
  std::vector<std::vector<std::string>> ids(8);
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    manager.register_handler("job", handler([&](const Object&, Object&) {
                               ++runs;
                               return true;
                             }));
    std::vector<std::thread> threads;
    for (std::vector<std::string>& mine : ids)
      threads.emplace_back([&] {
        for (std::string id; !(id = submit(manager, "job")).empty();) mine.push_back(id);
      });
    while (runs == 0) std::this_thread::yield();
    manager.close();
    for (std::thread& thread : threads) thread.join();
  }
  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  int completed = 0;
  for (const std::vector<std::string>& mine : ids)
    for (const std::string& id : mine) {
      const std::string state = state_of(manager, id);
      EXPECT_TRUE(state == "completed" || state == "failed") << state;
      completed += state == "completed";
    }
  EXPECT_EQ(completed, runs);
}

TEST_F(Task_Store_Test, A_second_manager_on_the_same_file_is_refused_and_stays_as_it_was) {
  test_support::Log_Capture log;
  Task_Manager first;
  ASSERT_TRUE(first.open(db_));
  Task_Manager second;
  Object before = run(second, succeed);
  EXPECT_FALSE(second.open(db_));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to open task store '" + db_ + "': database is locked.\n")) << log.all();
  EXPECT_EQ(state_of(second, before["id"].get_str()), "completed");
  EXPECT_EQ(run(first, succeed)["state"].get_str(), "completed");
}

TEST_F(Task_Store_Test, A_file_that_is_no_database_is_refused) {
  test_support::Log_Capture log;
  dir_.write("tasks.db", std::string(5000, 'x'));
  Task_Manager manager;
  EXPECT_FALSE(manager.open(db_));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to open task store '" + db_ + "': file is not a database.\n")) << log.all();
}

TEST_F(Task_Store_Test, A_file_of_a_later_version_is_refused_and_not_changed) {
  test_support::Log_Capture log;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(db_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "PRAGMA user_version = 2", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  const std::string before = test_support::read_file(db_);
  Task_Manager manager;
  EXPECT_FALSE(manager.open(db_));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to open task store '" + db_ + "': it was written by a later version.\n"))
      << log.all();
  EXPECT_EQ(test_support::read_file(db_), before);
}

TEST_F(Task_Store_Test, A_directory_that_is_missing_is_refused) {
  test_support::Log_Capture log;
  Task_Manager manager;
  EXPECT_FALSE(manager.open(dir_ / "missing/tasks.db"));
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u);
}

TEST_F(Task_Store_Test, Ended_tasks_beyond_the_number_are_dropped_oldest_first) {
  Task_Manager manager;
  Task_Manager::Options options;
  options.max_tasks = 3;
  ASSERT_TRUE(manager.open(db_, options));
  std::vector<std::string> ids;
  for (int i = 0; i < 6; ++i) ids.push_back(run(manager, succeed)["id"].get_str());
  manager.close();
  ASSERT_TRUE(manager.open(db_, options));
  Array tasks;
  ASSERT_TRUE(manager.list(tasks));
  ASSERT_EQ(tasks.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(tasks[i].get_obj()["id"].get_str(), ids[5 - i]);
  EXPECT_EQ(state_of(manager, ids[2]), "unknown");
}

TEST_F(Task_Store_Test, Tasks_that_ended_too_long_ago_are_dropped) {
  std::string id;
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    id = run(manager, succeed)["id"].get_str();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  Task_Manager manager;
  Task_Manager::Options options;
  options.max_age = std::chrono::seconds(1);
  ASSERT_TRUE(manager.open(db_, options));
  EXPECT_EQ(state_of(manager, id), "unknown");
}

TEST_F(Task_Store_Test, Without_limits_nothing_is_dropped) {
  Task_Manager manager;
  Task_Manager::Options options;
  options.max_tasks = 0;
  options.max_age = std::chrono::seconds(0);
  ASSERT_TRUE(manager.open(db_, options));
  for (int i = 0; i < 5; ++i) run(manager, succeed);
  Array tasks;
  ASSERT_TRUE(manager.list(tasks));
  EXPECT_EQ(tasks.size(), 5u);
}

/// Lets no file of this process grow while it lives, as a full disk does.
class Full_Disk {
 public:
  Full_Disk() {
    getrlimit(RLIMIT_FSIZE, &before_);
    previous_ = signal(SIGXFSZ, SIG_IGN);
    rlimit none = before_;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &none);
  }
  ~Full_Disk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, previous_);
  }

 private:
  rlimit before_{};
  sighandler_t previous_;
};

TEST_F(Task_Store_Test, A_full_disk_is_logged_and_the_job_runs_on_and_is_stored_later) {
  test_support::Log_Capture log;
  std::string id;
  {
    Task_Manager manager;
    ASSERT_TRUE(manager.open(db_));
    {
      Full_Disk full;
      Object task = run(manager, succeed);
      id = task["id"].get_str();
      EXPECT_EQ(task["state"].get_str(), "completed");
      EXPECT_EQ(task["result"].get_obj()["size"].get_int(), 11);
      EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to save a task in the task store: ")) << log.all();
      Array tasks;
      ASSERT_TRUE(manager.list(tasks));
      ASSERT_EQ(tasks.size(), 1u);
      EXPECT_EQ(tasks[0].get_obj()["state"].get_str(), "completed");
    }
    run(manager, succeed);
  }
  Task_Manager manager;
  ASSERT_TRUE(manager.open(db_));
  EXPECT_EQ(state_of(manager, id), "completed");
}

}  // namespace
