#include "fake_task_manager.h"

#include "task/task_manager.h"

// The operations that the handlers call are defined here, in place of the library's.

Fake_Task_Manager& Fake_Task_Manager::instance() {
  static Fake_Task_Manager fake;
  return fake;
}

Task_Manager* Task_Manager::instance() {
  alignas(Task_Manager) static char place[sizeof(Task_Manager)];
  return reinterpret_cast<Task_Manager*>(place);  // never looked into
}

bool Task_Manager::register_handler(const std::string& name, Task_Handler_var handler) {
  Fake_Task_Manager::instance().registered.emplace_back(name, handler);
  return Fake_Task_Manager::instance().registers;
}

bool Task_Manager::submit(const json_spirit::Object& task, std::string& id) {
  Fake_Task_Manager& fake = Fake_Task_Manager::instance();
  if (fake.on_submit) fake.on_submit();
  fake.submitted.push_back(task);
  if (fake.submits) id = fake.next_id;
  return fake.submits;
}

bool Task_Manager::get(const std::string& id, json_spirit::Object& task) {
  const auto found = Fake_Task_Manager::instance().stored.find(id);
  if (found == Fake_Task_Manager::instance().stored.end()) return false;
  task = found->second;
  return true;
}
