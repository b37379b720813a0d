#include "websvcs/agent_methods.h"

#include <new>

#include "ace/Log_Msg.h"
#include "json_rpc/json_rpc_error_code.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "task/task_manager.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

int Agent_Method::handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) {
  const JSON_RPC_Channel_var channel(sender);
  if (!channel.get()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Abort handling JSON-RPC request, requester has gone.\n")), -1);
  }
  const JSON_RPC_Request* const request = JSON_RPC_Request::narrow(obj.get());
  if (!request) return 0;  // a notification asks for nothing
  JSON_RPC_Response* const response = new (std::nothrow) JSON_RPC_Response(request);
  const JSON_RPC_Object_var answer(response);
  if (!response || !function_(request->params(), response->result())) {
    return channel->send_error(JSON_RPC_E_INTERNAL_ERROR, request->id(), "Internal error.", Value::null);
  }
  return channel->send(answer);
}

bool Agent_Info::operator()(const Value&, Value& result) const {
  Array names;
  for (const std::string& method : methods) names.push_back(Value(method));
  const auto uptime = std::chrono::steady_clock::now() - started;
  json_spirit::insert(result.to_new_object())("version", Value(TESSARIN_VERSION))(
      "plugin", plugin.empty() ? Value::null : Value(plugin))("methods", Value(std::move(names)))(
      "uptime_seconds", Value(static_cast<int64_t>(std::chrono::duration_cast<std::chrono::seconds>(uptime).count())))(
      "host_uuid", Value(host_uuid))("state_dir", Value(state_dir));
  return true;
}

bool agent_tasks(const Value& params, Value& result) {
  const std::string* id = nullptr;
  unsigned limit = 0;
  if (params.type() == json_spirit::obj_type) json_spirit::extract(params.get_obj())("id", id)("limit", limit);

  Array tasks;
  Object task;
  if (!id) {
    if (!Task_Manager::instance()->list(tasks, limit)) return false;
  } else if (Task_Manager::instance()->get(*id, task)) {
    tasks.push_back(Value(std::move(task)));
  }
  result.to_new_object()["tasks"] = Value(std::move(tasks));
  return true;
}
