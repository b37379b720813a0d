// What a task costs when 10,000 ended ones are in the store: submitting, polling, listing, and a restart.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "task/task_manager.h"
#include "task/task_record.h"
#include "task/task_store.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;

constexpr int ended_tasks = 10000;

class Quick_Handler : public Task_Handler {
  bool execute(const Object&, Object&) override { return true; }
  bool remove(const std::string&) override { return true; }
};

/// A store file with 10,000 ended tasks, each with a result and two errors, made once.
class Filled_Store {
 public:
  Filled_Store() : dir_((std::filesystem::temp_directory_path() / "task-bench-XXXXXX").string()) {
    if (mkdtemp(dir_.data()) == nullptr) abort();
    Task_Store store;
    store.open(path());
    for (int i = 0; i < ended_tasks; ++i) store.save(record());
  }
  ~Filled_Store() { std::filesystem::remove_all(dir_); }

  std::string path() const { return dir_ + "/tasks.db"; }
  std::string last_id;

 private:
  Task_Record record() {
    Task_Record record;
    record.id = last_id = new_task_id();
    record.type = "job";
    record.kind = "backup";
    record.state = "failed";
    record.result["size"] = 123456789;
    record.result["set_size"] = 123456789;
    record.result["storage_size"] = 23456789;
    record.created = record.started = record.finished = now_milliseconds();
    record.errors = {"Failed to get backup path /var/lib/kubelet/pods/*/volumes/data.", "a second line"};
    return record;
  }

  std::string dir_;
};

Filled_Store& filled_store() {
  static Filled_Store store;
  return store;
}

void wait_for_end(Task_Manager& manager, const std::string& id) {
  for (;;) {
    Object task;
    manager.get(id, task);
    const std::string& state = task["state"].get_str();
    if (state != "queued" && state != "running") return;
    std::this_thread::yield();
  }
}

void open_with_10000(benchmark::State& state) {
  const std::string path = filled_store().path();
  for (auto _ : state) {
    Task_Manager manager;
    if (!manager.open(path)) state.SkipWithError("open failed");
    manager.close();
  }
}
BENCHMARK(open_with_10000)->Unit(benchmark::kMillisecond);

/// From submit() until the task reads "completed": three changes of the store, each synced to disk. Argument: ended
/// tasks.
void task_from_submit_to_end(benchmark::State& state) {
  Task_Manager manager;
  const std::string empty = filled_store().path() + ".empty";
  manager.open(state.range(0) == 0 ? empty : filled_store().path());
  manager.register_handler("job", Task_Handler_var(new Quick_Handler));
  Object document;
  document["type"] = "job";
  for (auto _ : state) {
    std::string id;
    if (!manager.submit(document, id)) state.SkipWithError("submit failed");
    wait_for_end(manager, id);
  }
}
BENCHMARK(task_from_submit_to_end)->Arg(0)->Arg(ended_tasks)->UseRealTime()->Unit(benchmark::kMicrosecond);

void get_one_of_10000(benchmark::State& state) {
  Task_Manager manager;
  manager.open(filled_store().path());
  const std::string id = filled_store().last_id;
  for (auto _ : state) {
    Object task;
    if (!manager.get(id, task)) state.SkipWithError("get failed");
  }
}
BENCHMARK(get_one_of_10000)->Unit(benchmark::kMicrosecond);

/// Argument: the limit, 0 for all.
void list_of_10000(benchmark::State& state) {
  Task_Manager manager;
  manager.open(filled_store().path());
  for (auto _ : state) {
    Array tasks;
    if (!manager.list(tasks, static_cast<size_t>(state.range(0)))) state.SkipWithError("list failed");
  }
}
BENCHMARK(list_of_10000)->Arg(20)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
