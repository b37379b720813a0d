#include "task/task_manager.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <exception>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ace/Log_Msg.h"
#include "task/task_context.h"
#include "task/task_metrics.h"
#include "task/task_record.h"
#include "task/task_store.h"

using json_spirit::Array;
using json_spirit::Object;

namespace {

/// How often a running task is asked again to stop.
constexpr std::chrono::milliseconds cancel_interval(200);

Task_Record snapshot(const Task_Record& record, const Task_Context& context) {
  Task_Record copy = record;
  if (copy.ended()) return copy;
  copy.errors = context.errors();
  copy.errors_left_out = context.errors_left_out();
  return copy;
}

/// A handler's exception must not take the worker with it, which other tasks wait for.
bool execute(const Task_Handler_var& handler, const Object& document, Object& result) {
  if (!handler) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to run a task, its handler is missing.\n")), false);
  try {
    return handler->execute(document, result);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Task ended by an exception: %C.\n"), e.what()));
  } catch (...) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Task ended by an unknown exception.\n")));
  }
  return false;
}

std::mutex instance_lock;
Task_Manager* the_instance = nullptr;  // guarded by instance_lock

}  // namespace

/// A task that is queued, is running, or has ended and could not be stored yet.
struct Task_Manager::Live_Task {
  explicit Live_Task(const std::string& id) : context(id) { record.id = id; }

  Task_Record record;        // guarded by the manager's lock_
  Object document;           // the worker's, from the moment of queueing
  Task_Handler_var handler;  // the worker's
  Task_Context context;
};

struct Task_Manager::Worker {
  std::string name;
  std::deque<Live_Task_var> queue;  // guarded by the manager's lock_
  std::thread thread;
};

Task_Manager* Task_Manager::instance() {
  std::lock_guard<std::mutex> guard(instance_lock);
  if (the_instance == nullptr) the_instance = new Task_Manager;
  return the_instance;
}

void Task_Manager::close_instance() {
  std::lock_guard<std::mutex> guard(instance_lock);
  delete std::exchange(the_instance, nullptr);
}

Task_Manager::Task_Manager() : store_(new Task_Store) {
  store_->open(std::string());
}

Task_Manager::~Task_Manager() {
  close();
}

bool Task_Manager::open(const std::string& db_path, const Options& options) {
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (!live_.empty())
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to open task store '%C': tasks are running.\n"), db_path.c_str()),
                       false);
    if (!store_->open(db_path)) return false;
    options_ = options;
    closing_ = false;
  }
  prune();
  recall();
  return true;
}

bool Task_Manager::close(const std::function<void()>& cancel_running) {
  std::unique_lock<std::mutex> lock(lock_);
  closing_ = true;
  changed_.notify_all();
  while (busy_ != 0) {
    lock.unlock();
    if (cancel_running) cancel_running();
    lock.lock();
    changed_.wait_for(lock, cancel_interval, [this] { return busy_ == 0; });
  }
  const auto workers = std::exchange(workers_, {});
  lock.unlock();
  for (const auto& [name, worker] : workers) {
    worker->thread.join();
    for (const Live_Task_var& task : worker->queue) {
      task_metrics::queued(-1);
      fail_unstarted(task);
    }
  }
  store_unsaved();
  store_->close();
  lock.lock();
  live_.clear();
  return true;
}

bool Task_Manager::register_handler(const std::string& name, Task_Handler_var handler) {
  std::lock_guard<std::mutex> guard(lock_);
  handlers_[name].swap(handler);  // what stood there goes with the argument, after the lock
  return true;
}

void Task_Manager::observe(Observer observer) {
  std::lock_guard<std::mutex> guard(lock_);
  observer_.swap(observer);
}

void Task_Manager::tell(const Task_Record& record) const {
  if (observer_) observer_(record);
}

bool Task_Manager::submit(const Object& document, std::string& id) {
  Live_Task_var task(new (std::nothrow) Live_Task(new_task_id()));
  if (!task) return errno = ENOMEM, false;
  Task_Record& record = task->record;
  json_spirit::object_get(document, "type", record.type);
  if (record.type.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Can't submit a task without a type.\n")), false);
  if (const Object* data = json_spirit::object_get_object(document, "data"))
    json_spirit::object_get(*data, "type", record.kind);
  record.state = "queued";
  record.created = now_milliseconds();
  task->document = document;
  task->document["id"] = record.id;

  if (!begin(task)) return false;
  store_->save(record);
  id = record.id;
  queue(task);
  return true;
}

/// Takes the task in, so that it can be read, but does not queue it yet: it is stored first.
bool Task_Manager::begin(const Live_Task_var& task) {
  const std::string& type = task->record.type;
  std::lock_guard<std::mutex> guard(lock_);
  if (closing_)
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Can't submit a task of type '%C', the agent ends.\n"), type.c_str()), false);
  if (handlers_.count(type) == 0)
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Can't submit a task of type '%C', it has no handler.\n"), type.c_str()),
                     false);
  if (!start_worker(type)) return false;
  live_[task->record.id] = task;
  ++busy_;
  return true;
}

void Task_Manager::queue(const Live_Task_var& task) {
  bool queued = false;
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (!closing_) {
      workers_[task->record.type]->queue.push_back(task);
      queued = true;
      task_metrics::queued(+1);
    }
  }
  if (!queued) fail_unstarted(task);
  not_busy();
}

/// Sees to it that the handler name has a worker. The caller holds lock_.
bool Task_Manager::start_worker(const std::string& name) {
  if (workers_.count(name) != 0) return true;
  try {
    auto worker = std::make_unique<Worker>();
    worker->name = name;
    worker->thread = std::thread([this, self = worker.get()] { work(*self); });
    workers_[name] = std::move(worker);
  } catch (const std::exception& e) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to start a thread for tasks of type '%C': %C.\n"), name.c_str(), e.what()), false);
  }
  return true;
}

void Task_Manager::work(Worker& worker) {
  while (const Live_Task_var task = next_task(worker)) {
    run(task);
    not_busy();
  }
}

/// Waits for a task and marks it running; empty when the manager closes.
Task_Manager::Live_Task_var Task_Manager::next_task(Worker& worker) {
  std::unique_lock<std::mutex> lock(lock_);
  changed_.wait(lock, [&] { return closing_ || !worker.queue.empty(); });
  if (closing_) return {};
  const Live_Task_var task = worker.queue.front();
  worker.queue.pop_front();
  ++busy_;
  task->record.state = "running";
  task->record.started = now_milliseconds();
  task->handler = handlers_[worker.name];
  task_metrics::queued(-1);
  task_metrics::begun(task->record);
  return task;
}

void Task_Manager::run(const Live_Task_var& task) {
  store_->save(task->record);  // only this thread changes the record now
  tell(task->record);
  Object result;
  bool done = false;
  {
    Task_Context::Attach attach(&task->context);
    done = execute(task->handler, task->document, result);
  }
  task->handler.reset();
  finish(task, done ? "completed" : task->context.canceled() ? "canceled" : "failed", std::move(result));
}

void Task_Manager::fail_unstarted(const Live_Task_var& task) {
  task->context.add_error("The agent ended before the task began to run.");
  finish(task, "failed", Object());
}

/// Stores the end before anyone can read it: what was told once must not read otherwise after a crash.
void Task_Manager::finish(const Live_Task_var& task, const std::string& state, Object result) {
  task->document.clear();
  Task_Record ended = snapshot(task->record, task->context);
  ended.state = state;
  ended.result = std::move(result);
  ended.finished = now_milliseconds();
  const bool stored = store_->save(ended);
  task_metrics::ended(ended);
  tell(ended);
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (stored)
      live_.erase(ended.id);
    else
      task->record = std::move(ended);
  }
  if (!stored) return;
  store_unsaved();
  prune();
}

void Task_Manager::not_busy() {
  {
    std::lock_guard<std::mutex> guard(lock_);
    --busy_;
  }
  changed_.notify_all();
}

/// Tries again with what ended while the store failed.
void Task_Manager::store_unsaved() {
  std::vector<Task_Record> unsaved;
  {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& [id, task] : live_)
      if (task->record.ended()) unsaved.push_back(task->record);
  }
  for (const Task_Record& record : unsaved) {
    if (!store_->save(record)) return;
    std::lock_guard<std::mutex> guard(lock_);
    live_.erase(record.id);
  }
}

void Task_Manager::prune() {
  Options options;
  {
    std::lock_guard<std::mutex> guard(lock_);
    options = options_;
  }
  const int64_t age = std::chrono::duration_cast<std::chrono::milliseconds>(options.max_age).count();
  store_->prune(options.max_tasks, age != 0 ? now_milliseconds() - age : 0);
}

/// So that the metrics know the last success of an earlier run.
void Task_Manager::recall() {
  std::vector<Task_Record> records;
  if (!store_->list(0, records)) return;
  for (const Task_Record& record : records) task_metrics::remembered(record);
}

bool Task_Manager::get(const std::string& id, Object& task) {
  Task_Record record;
  {
    std::lock_guard<std::mutex> guard(lock_);
    const auto live = live_.find(id);
    if (live != live_.end()) record = snapshot(live->second->record, live->second->context);
  }
  if (record.id.empty() && !store_->find(id, record)) return false;
  task = to_object(record);
  return true;
}

bool Task_Manager::list(Array& tasks, size_t limit) {
  std::map<std::string, Task_Record> live;
  {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& [id, task] : live_) live[id] = snapshot(task->record, task->context);
  }
  std::vector<Task_Record> records;
  if (!store_->list(limit, records)) return false;
  for (Task_Record& record : records) {
    // The store is behind with a task's errors, and ahead with one that has ended since.
    const auto found = live.find(record.id);
    if (found == live.end()) continue;
    if (!record.ended()) record = std::move(found->second);
    live.erase(found);
  }
  for (auto& [id, record] : live) records.push_back(std::move(record));  // those that could not be stored
  std::stable_sort(records.begin(), records.end(),
                   [](const Task_Record& a, const Task_Record& b) { return a.created > b.created; });
  if (limit != 0 && records.size() > limit) records.resize(limit);

  Array found;
  found.reserve(records.size());
  for (const Task_Record& record : records) found.emplace_back(to_object(record));
  tasks = std::move(found);
  return true;
}
