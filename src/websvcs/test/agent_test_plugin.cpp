// A plug-in for the tests of the agent: a job that runs until it is cancelled.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "task/task_context.h"
#include "task/task_manager.h"

namespace {

std::atomic<bool> cancel_is_asked{false};

void tell(const std::string& line) {
  (void)!::write(STDERR_FILENO, line.data(), line.size());
}

/// Destroyed when the plug-in is unloaded.
struct Unload_Witness {
  ~Unload_Witness() { tell("plug-in unloaded\n"); }
} unload_witness;

class Endless_Task : public Task_Handler {
 public:
  bool execute(const json_spirit::Object&, json_spirit::Object&) override {
    tell("job runs\n");
    while (!cancel_is_asked) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    Task_Context::current()->set_canceled();
    tell("job ends\n");
    return false;
  }
  bool remove(const std::string&) override { return true; }
};

int answer(JSON_RPC_Channel& channel, const JSON_RPC_Request& request, const json_spirit::Value& result) {
  auto* const response = new JSON_RPC_Response(&request);
  response->result() = result;
  return channel.send(JSON_RPC_Object_var(response));
}

class Start_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(sender);
    Task_Manager::instance()->register_handler("endless", std::make_shared<Endless_Task>());
    json_spirit::Object task;
    task["type"] = json_spirit::Value("endless");
    std::string id;
    Task_Manager::instance()->submit(task, id);
    return answer(*channel, *JSON_RPC_Request::narrow(object.get()), json_spirit::Value(id));
  }
};

class Cancel_Handler : public JSON_RPC_Thread_Pool_Handler_Impl {
 public:
  Cancel_Handler() : JSON_RPC_Thread_Pool_Handler_Impl(static_cast<Mode>(0)) {}
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override {
    cancel_is_asked = true;
    return answer(*channel, request, json_spirit::Value(true));
  }
};

void gobble(void* handler) {
  delete static_cast<JSON_RPC_Handler*>(handler);
}

}  // namespace

extern "C" {

TESSARIN_API JSON_RPC_Handler* _make_Start_Handler(JSON_RPC_Handler_Exterminator* gobbler) {
  *gobbler = gobble;
  return new Start_Handler;
}

TESSARIN_API JSON_RPC_Handler* _make_Cancel_Handler(JSON_RPC_Handler_Exterminator* gobbler) {
  *gobbler = gobble;
  return new Cancel_Handler;
}
}
