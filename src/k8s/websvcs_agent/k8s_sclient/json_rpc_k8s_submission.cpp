#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_submission.h"

#include <string>
#include <utility>

#include "ace/OS_NS_errno.h"
#include "json_spirit/assign.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_answers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "kolt/check_macros.h"
#include "kolt/string_sprintf.h"
#include "task/task_manager.h"

using json_spirit::Object;
using json_spirit::Object_Maker;

namespace {

constexpr char task_name[] = "k8s sclient task";

Task_Handler_var new_task_handler() {
  K8S_SClient_Task_Handler* handler = nullptr;
  ACE_NEW_RETURN(handler, K8S_SClient_Task_Handler, Task_Handler_var());
  return Task_Handler_var(handler);
}

}  // namespace

int submit_job(const char* type, JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) {
  JSON_RPC_Channel_var channel(sender);
  if (channel.null()) return requester_has_gone();
  const JSON_RPC_Request* request = JSON_RPC_Request::narrow(obj.get());
  KOLT_RETURN_IF_NOT(request != nullptr, obj, "JSON-RPC request", -1);
  if (request->params().type() != json_spirit::obj_type)
    return send_invalid_params(*channel, *request, "Invalid params: params type must be object.");

  // Each request replaces the registration of the one before; a task that runs keeps its own handler.
  if (!Task_Manager::instance()->register_handler(task_name, new_task_handler()))
    return send_invalid_params(*channel, *request, string_sprintf("Failed to register %s handler.\n", type).c_str());

  Object task;
  json_spirit::insert(task)("type", task_name)("data", Object_Maker()("type", type)("params", request->params()));
  std::string task_id;
  Task_Manager::instance()->submit(task, task_id);  // an empty id tells the requester of a failure

  JSON_RPC_Response* response = new_response(*request);
  if (response == nullptr) return send_out_of_memory(*channel, *request);
  const JSON_RPC_Object_var answer(response);
  response->result() = std::move(task_id);
  return channel->send(answer);
}
