#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_process_handler.h"

#include <algorithm>
#include <exception>
#include <string>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_answers.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_factory.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"
#include "kolt/check_macros.h"
#include "kolt/snprintf_t.h"

using json_spirit::Object;

K8S_SCLIENT_FACTORY_DEFINE(JSON_RPC_K8S_Process_Handler)

namespace {

/// Adds the final sizes of a completed task to the answer. What was reported last may be more than what was counted
/// first. Throws std::exception where a size is missing.
void insert_sizes(const Object& task_result, const K8S_SClient_Toolkit::Progress& process, Object& result) {
  ACE_UINT64 size = 0;
  ACE_UINT64 set_size = 0;
  ACE_UINT64 storage_size = 0;
  json_spirit::extract_or_throw(task_result)("size", size)("set_size", set_size)("storage_size", storage_size);
  json_spirit::insert(result)("size", size)("set_size", set_size)("storage_size", storage_size)(
      "total", std::max(process.total, size))("processed", std::max(process.processed, size));
}

}  // namespace

int JSON_RPC_K8S_Process_Handler::handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) {
  JSON_RPC_Channel_var channel(sender);
  if (channel.null()) return requester_has_gone();
  const JSON_RPC_Request* request = JSON_RPC_Request::narrow(obj.get());
  KOLT_RETURN_IF_NOT(request != nullptr, obj, "JSON-RPC request", -1);
  JSON_RPC_Response* response = new_response(*request);
  if (response == nullptr) return send_out_of_memory(*channel, *request);
  const JSON_RPC_Object_var answer(response);

  if (request->params().type() != json_spirit::obj_type)
    return send_invalid_params(*channel, *request, "Invalid params: params type must be object.");
  const std::string* job_id = nullptr;
  json_spirit::extract(request->params().get_obj())("job_id", job_id);
  if (job_id == nullptr)
    return send_invalid_params(*channel, *request, "Invalid params: 'job_id' is expected as string in params.");

  Object task;
  if (!K8S_SClient_Task_Handler::instance()->get(*job_id, task)) {
    const snprintf_t<64, char> text("Failed to get task for %s.", job_id->c_str());
    return send_internal_error(*channel, *request, text.c_str());
  }
  const std::string* state = nullptr;
  json_spirit::extract(static_cast<const Object&>(task))("state", state);
  if (state == nullptr)
    return send_invalid_params(*channel, *request, "Invalid params: 'state' is expected as string in params.");

  const K8S_SClient_Toolkit::Progress process = K8S_SClient_Toolkit::instance()->get_job_progress(*job_id);
  Object& result = response->result().to_new_object();
  json_spirit::insert(result)("state", *state)("speed", process.speed)("total", process.total)("processed",
                                                                                               process.processed);
  if (*state == "completed") {
    K8S_SClient_Toolkit::instance()->remove_job_progress(*job_id);
    const Object* task_result = nullptr;
    json_spirit::extract(static_cast<const Object&>(task))("result", task_result);
    if (task_result == nullptr)
      return send_invalid_params(*channel, *request, "Invalid params: 'result' is expected as object in params.");
    try {
      insert_sizes(*task_result, process, result);
    } catch (const std::exception& error) {
      const snprintf_t<64, char> text("Failed to extract size information, err %s.\n", error.what());
      return send_invalid_params(*channel, *request, text.c_str());
    }
  }
  return channel->send(answer);
}
