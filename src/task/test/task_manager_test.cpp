#include "task/task_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kolt/metrics.h"
#include "support/log_capture.h"
#include "task/task_context.h"
#include "task/task_record.h"
#include "task/test/function_handler.h"

namespace {

using namespace task_test;

bool succeed(const Object&, Object&) {
  return true;
}

/// A handler that runs until the test lets it end.
struct Gate {
  std::promise<void> entered;
  std::promise<void> open;

  Function_Handler::Function function() {
    return [this, leave = open.get_future().share()](const Object&, Object&) {
      entered.set_value();
      leave.wait();
      return true;
    };
  }
};

TEST(Task_Manager, A_task_that_succeeds_reads_completed_with_its_result_and_times) {
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object& result) {
                             result["size"] = 5;
                             return true;
                           }));
  Object task = wait_for_end(manager, submit(manager, "job"));
  EXPECT_EQ(task["state"].get_str(), "completed");
  EXPECT_EQ(task["type"].get_str(), "job");
  EXPECT_EQ(task["result"].get_obj()["size"].get_int(), 5);
  EXPECT_TRUE(task["errors"].get_array().empty());
  EXPECT_GT(task["created"].get_int64(), 1600000000000);
  EXPECT_LE(task["created"].get_int64(), task["started"].get_int64());
  EXPECT_LE(task["started"].get_int64(), task["finished"].get_int64());
}

TEST(Task_Manager, The_handler_sees_the_submitted_document_with_the_id_added) {
  Task_Manager manager;
  Object seen;
  manager.register_handler("job", handler([&](const Object& task, Object&) {
                             seen = task;
                             return true;
                           }));
  Object data;
  data["type"] = "backup";
  Object task = document("job");
  task["data"] = data;
  std::string id;
  ASSERT_TRUE(manager.submit(task, id));
  wait_for_end(manager, id);
  EXPECT_EQ(seen["id"].get_str(), id);
  EXPECT_EQ(seen["type"].get_str(), "job");
  EXPECT_EQ(seen["data"].get_obj()["type"].get_str(), "backup");
}

TEST(Task_Manager, The_type_of_the_job_is_kept_as_kind) {
  Task_Manager manager;
  manager.register_handler("job", handler(succeed));
  Object data;
  data["type"] = "restore";
  Object task = document("job");
  task["data"] = data;
  std::string id;
  manager.submit(task, id);
  EXPECT_EQ(wait_for_end(manager, id)["kind"].get_str(), "restore");
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["kind"].get_str(), "");
}

TEST(Task_Manager, The_document_is_not_given_out) {
  Task_Manager manager;
  Gate gate;
  manager.register_handler("job", handler(gate.function()));
  Object params;
  params["access_key"] = "canary";
  Object task = document("job");
  task["data"] = params;
  task["params"] = params;
  std::string id;
  manager.submit(task, id);
  gate.entered.get_future().wait();
  Object running;
  manager.get(id, running);
  EXPECT_EQ(running.count("data"), 0u);
  EXPECT_EQ(running.count("params"), 0u);
  gate.open.set_value();
}

TEST(Task_Manager, False_from_the_handler_reads_failed_and_keeps_the_result) {
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object& result) {
                             result["size"] = 7;
                             return false;
                           }));
  Object task = wait_for_end(manager, submit(manager, "job"));
  EXPECT_EQ(task["state"].get_str(), "failed");
  EXPECT_EQ(task["result"].get_obj()["size"].get_int(), 7);
}

TEST(Task_Manager, False_after_a_cancel_reads_canceled) {
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) {
                             Task_Context::current()->set_canceled();
                             return false;
                           }));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "canceled");
}

TEST(Task_Manager, A_task_that_ends_well_despite_a_cancel_reads_completed) {
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) {
                             Task_Context::current()->set_canceled();
                             return true;
                           }));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "completed");
}

TEST(Task_Manager, A_cancel_does_not_reach_the_next_task) {
  Task_Manager manager;
  std::atomic<int> runs{0};
  manager.register_handler("job", handler([&](const Object&, Object&) {
                             if (runs++ == 0) Task_Context::current()->set_canceled();
                             return false;
                           }));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "canceled");
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "failed");
}

TEST(Task_Manager, An_exception_fails_the_task_and_is_its_error) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job",
                           handler([](const Object&, Object&) -> bool { throw std::runtime_error("no such luck"); }));
  Object task = wait_for_end(manager, submit(manager, "job"));
  EXPECT_EQ(task["state"].get_str(), "failed");
  ASSERT_EQ(task["errors"].get_array().size(), 1u);
  EXPECT_EQ(task["errors"].get_array()[0].get_str(), "Task ended by an exception: no such luck.");
  EXPECT_TRUE(log.has(LM_ERROR, "Task ended by an exception: no such luck.\n"));
}

TEST(Task_Manager, Something_thrown_that_is_no_exception_fails_the_task) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) -> bool { throw 5; }));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "failed");
  EXPECT_TRUE(log.has(LM_ERROR, "Task ended by an unknown exception.\n"));
}

TEST(Task_Manager, The_worker_goes_on_after_an_exception) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) -> bool { throw 5; }));
  submit(manager, "job");
  manager.register_handler("job", handler(succeed));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "completed");
}

TEST(Task_Manager, A_second_task_of_a_name_waits_in_the_queue) {
  Task_Manager manager;
  Gate gate;
  manager.register_handler("job", handler(gate.function()));
  const std::string first = submit(manager, "job");
  gate.entered.get_future().wait();
  manager.register_handler("job", handler(succeed));
  const std::string second = submit(manager, "job");
  EXPECT_EQ(state_of(manager, first), "running");
  EXPECT_EQ(state_of(manager, second), "queued");
  Object task;
  manager.get(second, task);
  EXPECT_TRUE(task["started"].is_null());
  EXPECT_TRUE(task["finished"].is_null());
  EXPECT_EQ(task.count("result"), 0u);
  gate.open.set_value();
  EXPECT_EQ(wait_for_end(manager, second)["state"].get_str(), "completed");
}

TEST(Task_Manager, Tasks_of_two_names_run_side_by_side) {
  Task_Manager manager;
  Gate gate;
  manager.register_handler("slow", handler(gate.function()));
  manager.register_handler("quick", handler(succeed));
  const std::string slow = submit(manager, "slow");
  gate.entered.get_future().wait();
  EXPECT_EQ(wait_for_end(manager, submit(manager, "quick"))["state"].get_str(), "completed");
  EXPECT_EQ(state_of(manager, slow), "running");
  gate.open.set_value();
}

TEST(Task_Manager, A_task_uses_the_handler_that_is_registered_when_it_starts) {
  Task_Manager manager;
  Gate gate;
  std::atomic<bool> old_ran{false};
  std::atomic<bool> new_ran{false};
  manager.register_handler("job", handler(gate.function()));
  submit(manager, "job");
  gate.entered.get_future().wait();
  manager.register_handler("job", handler([&](const Object&, Object&) { return old_ran = true; }));
  const std::string id = submit(manager, "job");
  manager.register_handler("job", handler([&](const Object&, Object&) { return new_ran = true; }));
  gate.open.set_value();
  wait_for_end(manager, id);
  EXPECT_FALSE(old_ran);
  EXPECT_TRUE(new_ran);
}

TEST(Task_Manager, A_replaced_handler_lives_until_its_task_has_ended) {
  Task_Manager manager;
  Gate gate;
  Task_Handler_var replaced = handler(gate.function());
  const std::weak_ptr<Task_Handler> watch = replaced;
  manager.register_handler("job", std::move(replaced));
  const std::string id = submit(manager, "job");
  gate.entered.get_future().wait();
  EXPECT_TRUE(manager.register_handler("job", handler(succeed)));
  EXPECT_FALSE(watch.expired());
  gate.open.set_value();
  wait_for_end(manager, id);
  EXPECT_TRUE(watch.expired());
}

TEST(Task_Manager, A_missing_handler_fails_its_tasks) {
  test_support::Log_Capture log;
  Task_Manager manager;
  EXPECT_TRUE(manager.register_handler("job", Task_Handler_var()));
  Object task = wait_for_end(manager, submit(manager, "job"));
  EXPECT_EQ(task["state"].get_str(), "failed");
  ASSERT_EQ(task["errors"].get_array().size(), 1u);
  EXPECT_EQ(task["errors"].get_array()[0].get_str(), "Failed to run a task, its handler is missing.");
}

TEST(Task_Manager, A_document_without_a_type_is_refused) {
  test_support::Log_Capture log;
  Task_Manager manager;
  std::string id = "before";
  EXPECT_FALSE(manager.submit(Object(), id));
  EXPECT_EQ(id, "before");
  EXPECT_TRUE(log.has(LM_ERROR, "Can't submit a task without a type.\n"));
}

TEST(Task_Manager, A_type_without_a_handler_is_refused) {
  test_support::Log_Capture log;
  Task_Manager manager;
  std::string id = "before";
  EXPECT_FALSE(manager.submit(document("job"), id));
  EXPECT_EQ(id, "before");
  EXPECT_TRUE(log.has(LM_ERROR, "Can't submit a task of type 'job', it has no handler.\n"));
  Array tasks;
  ASSERT_TRUE(manager.list(tasks));
  EXPECT_TRUE(tasks.empty());
}

TEST(Task_Manager, An_unknown_id_is_not_found_and_nothing_is_logged) {
  test_support::Log_Capture log;
  Task_Manager manager;
  Object task = document("untouched");
  EXPECT_FALSE(manager.get("no such id", task));
  EXPECT_EQ(task["type"].get_str(), "untouched");
  EXPECT_EQ(log.all(), "");
}

TEST(Task_Manager, Submissions_from_64_threads_run_one_at_a_time_under_ids_of_their_own) {
  constexpr int count = 64;
  Task_Manager manager;
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  std::atomic<int> runs{0};
  const auto function = [&](const Object&, Object&) {
    most = std::max<int>(most, ++running);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ++runs;
    --running;
    return true;
  };
  std::vector<std::string> ids(count);
  std::vector<std::thread> threads;
  for (std::string& id : ids)
    threads.emplace_back([&] {
      manager.register_handler("job", handler(function));
      id = submit(manager, "job");
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& id : ids) EXPECT_EQ(wait_for_end(manager, id)["state"].get_str(), "completed");
  EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), static_cast<size_t>(count));
  EXPECT_EQ(runs, count);
  EXPECT_EQ(most, 1);
}

TEST(Task_Manager, Tasks_run_in_the_order_of_submission) {
  Task_Manager manager;
  std::vector<std::string> order;
  manager.register_handler("job", handler([&](const Object& task, Object&) {
                             order.push_back(task.at("id").get_str());
                             return true;
                           }));
  std::vector<std::string> ids;
  for (int i = 0; i < 20; ++i) ids.push_back(submit(manager, "job"));
  wait_for_end(manager, ids.back());
  EXPECT_EQ(order, ids);
}

TEST(Task_Manager, The_list_has_the_newest_task_first) {
  Task_Manager manager;
  manager.register_handler("job", handler(succeed));
  std::vector<std::string> ids;
  for (int i = 0; i < 5; ++i) ids.push_back(submit(manager, "job"));
  wait_for_end(manager, ids.back());
  Array tasks;
  ASSERT_TRUE(manager.list(tasks));
  ASSERT_EQ(tasks.size(), ids.size());
  for (size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(tasks[i].get_obj()["id"].get_str(), ids[ids.size() - 1 - i]);
}

TEST(Task_Manager, A_limit_cuts_the_list_to_the_newest) {
  Task_Manager manager;
  manager.register_handler("job", handler(succeed));
  submit(manager, "job");
  const std::string newest = submit(manager, "job");
  wait_for_end(manager, newest);
  Array tasks;
  ASSERT_TRUE(manager.list(tasks, 1));
  ASSERT_EQ(tasks.size(), 1u);
  EXPECT_EQ(tasks[0].get_obj()["id"].get_str(), newest);
}

TEST(Task_Manager, The_list_tells_a_running_task_with_its_errors_so_far) {
  test_support::Log_Capture log;
  Task_Manager manager;
  Gate gate;
  manager.register_handler("job", handler([inner = gate.function()](const Object& task, Object& result) {
                             Task_Context::current()->add_error("so far");
                             return inner(task, result);
                           }));
  submit(manager, "job");
  gate.entered.get_future().wait();
  Array tasks;
  ASSERT_TRUE(manager.list(tasks));
  ASSERT_EQ(tasks.size(), 1u);
  EXPECT_EQ(tasks[0].get_obj()["state"].get_str(), "running");
  ASSERT_EQ(tasks[0].get_obj()["errors"].get_array().size(), 1u);
  EXPECT_EQ(tasks[0].get_obj()["errors"].get_array()[0].get_str(), "so far");
  gate.open.set_value();
}

TEST(Task_Manager, Errors_logged_by_the_task_are_kept_with_it) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) {
                             ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get backup path %C.\n"), "/nowhere/*"));
                             ACE_ERROR((LM_WARNING, ACE_TEXT("only a warning\n")));
                             return false;
                           }));
  Object task = wait_for_end(manager, submit(manager, "job"));
  ASSERT_EQ(task["errors"].get_array().size(), 1u);
  EXPECT_EQ(task["errors"].get_array()[0].get_str(), "Failed to get backup path /nowhere/*.");
}

TEST(Task_Manager, Errors_of_one_task_do_not_reach_the_next) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job", handler([](const Object&, Object&) {
                             ACE_ERROR((LM_ERROR, ACE_TEXT("once\n")));
                             return false;
                           }));
  wait_for_end(manager, submit(manager, "job"));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["errors"].get_array().size(), 1u);
}

TEST(Task_Manager, Open_is_refused_while_a_task_runs) {
  test_support::Log_Capture log;
  Task_Manager manager;
  Gate gate;
  manager.register_handler("job", handler(gate.function()));
  const std::string id = submit(manager, "job");
  gate.entered.get_future().wait();
  EXPECT_FALSE(manager.open(""));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to open task store '': tasks are running.\n"));
  EXPECT_EQ(state_of(manager, id), "running");
  gate.open.set_value();
}

TEST(Task_Manager, Close_waits_for_the_running_task) {
  Task_Manager manager;
  std::atomic<bool> ended{false};
  std::promise<void> entered;
  manager.register_handler("job", handler([&](const Object&, Object&) {
                             entered.set_value();
                             std::this_thread::sleep_for(std::chrono::milliseconds(50));
                             return ended = true;
                           }));
  submit(manager, "job");
  entered.get_future().wait();
  EXPECT_TRUE(manager.close());
  EXPECT_TRUE(ended);
}

TEST(Task_Manager, Close_repeats_the_cancel_until_the_task_hears_it) {
  Task_Manager manager;
  std::atomic<int> cancels{0};
  std::promise<void> entered;
  manager.register_handler("job", handler([&](const Object&, Object&) {
                             entered.set_value();
                             while (cancels < 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
                             return false;
                           }));
  submit(manager, "job");
  entered.get_future().wait();
  EXPECT_TRUE(manager.close([&] { ++cancels; }));
  EXPECT_GE(cancels, 2);
}

TEST(Task_Manager, Close_cancels_nothing_when_nothing_runs) {
  Task_Manager manager;
  bool called = false;
  manager.close([&] { called = true; });
  EXPECT_FALSE(called);
}

TEST(Task_Manager, A_closed_manager_takes_no_tasks) {
  test_support::Log_Capture log;
  Task_Manager manager;
  manager.register_handler("job", handler(succeed));
  manager.close();
  EXPECT_EQ(submit(manager, "job"), "");
  EXPECT_TRUE(log.has(LM_ERROR, "Can't submit a task of type 'job', the agent ends.\n"));
}

TEST(Task_Manager, A_manager_opened_again_takes_tasks_for_the_same_handlers) {
  Task_Manager manager;
  manager.register_handler("job", handler(succeed));
  manager.close();
  ASSERT_TRUE(manager.open(""));
  EXPECT_EQ(wait_for_end(manager, submit(manager, "job"))["state"].get_str(), "completed");
}

TEST(Task_Manager, The_manager_of_the_process_works_without_being_opened) {
  Task_Manager* const manager = Task_Manager::instance();
  EXPECT_EQ(manager, Task_Manager::instance());
  manager->register_handler("job", handler(succeed));
  EXPECT_EQ(wait_for_end(*manager, submit(*manager, "job"))["state"].get_str(), "completed");
  Task_Manager::close_instance();
}

TEST(Task_Manager, After_close_instance_the_process_gets_a_new_manager) {
  Task_Manager::instance()->register_handler("job", handler(succeed));
  const std::string id = submit(*Task_Manager::instance(), "job");
  Task_Manager::close_instance();
  EXPECT_EQ(state_of(*Task_Manager::instance(), id), "unknown");
  Task_Manager::close_instance();
}

Object backup_document(const std::string& type) {
  Object data;
  data["type"] = "backup";
  Object task = document(type);
  task["data"] = data;
  return task;
}

TEST(Task_Manager, The_observer_is_told_of_begin_and_end) {
  std::mutex lock;
  std::vector<std::string> told;
  Task_Manager manager;
  manager.observe([&](const Task_Record& record) {
    const std::lock_guard guard(lock);
    told.push_back(record.kind + " " + record.state + (record.ended() ? " ended" : ""));
  });
  manager.register_handler("job", handler(succeed));
  manager.register_handler("bad", handler([](const Object&, Object&) { return false; }));
  std::string id;
  ASSERT_TRUE(manager.submit(backup_document("job"), id));
  wait_for_end(manager, id);
  ASSERT_TRUE(manager.submit(backup_document("bad"), id));
  wait_for_end(manager, id);
  manager.close();
  EXPECT_EQ(told, (std::vector<std::string>{"backup running", "backup completed ended", "backup running",
                                            "backup failed ended"}));
}

TEST(Task_Manager, The_context_knows_the_id_of_its_task) {
  Task_Manager manager;
  std::string seen;
  manager.register_handler("job", handler([&](const Object&, Object&) {
                             seen = Task_Context::current()->task_id();
                             return true;
                           }));
  const std::string id = submit(manager, "job");
  wait_for_end(manager, id);
  EXPECT_EQ(seen, id);
}

/// The value of a series in the metrics of the process.
double metric(const std::string& series) {
  const std::string text = "\n" + kolt::metrics_text();
  const size_t at = text.find("\n" + series + " ");
  return at == std::string::npos ? -1 : std::stod(text.substr(at + series.size() + 2));
}

TEST(Task_Manager, Jobs_are_counted_by_type_and_state) {
  const std::string completed = "tessarin_jobs_total{state=\"completed\",type=\"backup\"}";
  const std::string last_success = "tessarin_job_last_success_timestamp_seconds{type=\"backup\"}";
  Task_Manager manager;
  Gate gate;
  manager.register_handler("job", handler(gate.function()));
  const double before = std::max(metric(completed), 0.0);
  std::string first, second;
  ASSERT_TRUE(manager.submit(backup_document("job"), first));
  gate.entered.get_future().wait();
  EXPECT_EQ(metric("tessarin_jobs_running{type=\"backup\"}"), 1);
  manager.register_handler("job", handler(succeed));
  ASSERT_TRUE(manager.submit(backup_document("job"), second));
  EXPECT_EQ(metric("tessarin_jobs_queued"), 1);
  gate.open.set_value();
  wait_for_end(manager, second);
  manager.close();
  EXPECT_EQ(metric(completed), before + 2);
  EXPECT_EQ(metric("tessarin_jobs_running{type=\"backup\"}"), 0);
  EXPECT_EQ(metric("tessarin_jobs_queued"), 0);
  EXPECT_NEAR(metric(last_success), static_cast<double>(now_milliseconds()) / 1000, 60);
  EXPECT_GE(metric("tessarin_job_duration_seconds_count{type=\"backup\"}"), 2);
}

}  // namespace
