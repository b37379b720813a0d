#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_get_pvc_size_handler.h"

#include <optional>
#include <string>

#include "json_spirit/extract.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_answers.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_factory.h"
#include "kolt/dir_size.h"
#include "kolt/first_match.h"

K8S_SCLIENT_FACTORY_DEFINE(JSON_RPC_K8S_Get_PVC_Size_Handler)

JSON_RPC_K8S_Get_PVC_Size_Handler::JSON_RPC_K8S_Get_PVC_Size_Handler()
    : JSON_RPC_Thread_Pool_Handler_Impl(static_cast<JSON_RPC_Handler_Impl_Base::Mode>(0)) {}

int JSON_RPC_K8S_Get_PVC_Size_Handler::handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) {
  if (channel == nullptr) return requester_has_gone();
  const json_spirit::Value& params = request.params();
  if (params.type() != json_spirit::obj_type)
    return send_invalid_params(*channel, request, "Invalid params: params type must be object.");
  const std::string* path = nullptr;
  json_spirit::extract(params.get_obj())("path", path);
  if (path == nullptr)
    return send_invalid_params(*channel, request, "Invalid params: 'path' is expected as string in params.");
  const std::optional<std::string> target = first_match(*path);
  if (!target) return send_invalid_params(*channel, request, "Invalid params: failed to get path.");

  JSON_RPC_Response* response = new_response(request);
  if (response == nullptr) return send_out_of_memory(*channel, request);
  const JSON_RPC_Object_var answer(response);
  response->result().to_new_object()["size"] = static_cast<int64_t>(dir_size(target->c_str()));
  return channel->send(answer);
}
