#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_cancel_job_handler.h"

#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_answers.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_factory.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"

K8S_SCLIENT_FACTORY_DEFINE(JSON_RPC_K8S_Cancel_Job_Handler)

JSON_RPC_K8S_Cancel_Job_Handler::JSON_RPC_K8S_Cancel_Job_Handler()
    : JSON_RPC_Thread_Pool_Handler_Impl(static_cast<JSON_RPC_Handler_Impl_Base::Mode>(0)) {}

int JSON_RPC_K8S_Cancel_Job_Handler::handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) {
  if (channel == nullptr) return requester_has_gone();
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);

  JSON_RPC_Response* response = new_response(request);
  if (response == nullptr) return send_out_of_memory(*channel, request);
  const JSON_RPC_Object_var answer(response);
  response->result().to_new_object()["state"] = true;
  return channel->send(answer);
}
