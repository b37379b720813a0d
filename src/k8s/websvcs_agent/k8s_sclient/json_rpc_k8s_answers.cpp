#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_answers.h"

#include "ace/Log_Msg.h"
#include "ace/OS_NS_errno.h"
#include "json_rpc/json_rpc_error_code.h"
#include "json_spirit/json_spirit_value.h"

int requester_has_gone() {
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Abort handling JSON-RPC request, requester has gone.\n")), -1);
}

int send_invalid_params(JSON_RPC_Channel& channel, const JSON_RPC_Request& request, const char* message) {
  return channel.send_error(JSON_RPC_E_INVALID_PARAMS, request.id(), message, json_spirit::Value::null);
}

int send_internal_error(JSON_RPC_Channel& channel, const JSON_RPC_Request& request, const char* message) {
  return channel.send_error(JSON_RPC_E_INTERNAL_ERROR, request.id(), message, json_spirit::Value::null);
}

int send_out_of_memory(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  return send_internal_error(channel, request, "Internal error, out of memory.");
}

JSON_RPC_Response* new_response(const JSON_RPC_Request& request) {
  JSON_RPC_Response* response = nullptr;
  ACE_NEW_RETURN(response, JSON_RPC_Response(&request), nullptr);
  return response;
}
