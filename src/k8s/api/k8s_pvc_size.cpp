#include "ace/Log_Msg.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_websocket_command_handler.h"
#include "kolt/natoi.h"
#include "kolt/string_sprintf.h"

using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace k8s {

namespace {

constexpr ACE_UINT64 du_timeout_sec = 600;

/// Measures the directory @a path in the container behind @a exec_url. @retval false nothing, or 0, was measured.
bool measure_in_pod(const std::string& exec_url, const std::string& path, std::int64_t& size) {
  const std::string command = string_sprintf("du -sb %s", path.c_str());
  const std::map<std::string, std::string> no_params;
  std::string response;
  if (!K8S_Websocket_Command_Handler::Command_Handler(command, no_params, du_timeout_sec)(exec_url, response))
    return false;
  size = natoi<std::int64_t>(response.c_str());
  return size > 0;
}

bool measure_on_node(const std::string& node_name, const std::string& pattern, std::int64_t& size) {
  Value result;
  if (!node_rpc_request(node_name, "k8s.get_pvc_size", Object{{"path", pattern}}, result, json_spirit::obj_type)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pvc size from node '%s'.\n"), node_name.c_str()));
    return false;
  }
  try {
    json_spirit::extract_or_throw(result.get_obj())("size", size);
  } catch (const std::exception& err) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract pvc size, err '%s'.\n"), err.what()));
    return false;
  }
  return true;
}

}  // namespace

bool get_pvc_size(K8S_PVC& pvc_client, const Value& resource, const std::string& node_name, const std::string& pod_uid,
                  const std::string& name, std::int64_t& size) {
  std::string pv_name, self_link, path;
  if (!pvc_client.get_pv_name(name, pv_name)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pv name for pvc '%s'.\n"), name.c_str()));
    return false;
  }
  if (!build_self_link(resource, self_link)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to build self link.\n")));
    return false;
  }
  if (get_pvc_mount_path(resource, name, path)) {
    self_link += K8S_Websocket_Command_Handler::exec_query;
    if (measure_in_pod(self_link, path, size)) return true;
  }
  ACE_ERROR(
      (LM_WARNING, ACE_TEXT("Failed to get pvc size from self link '%s', use node rpc instead.\n"), self_link.c_str()));
  return measure_on_node(
      node_name, string_sprintf("/var/lib/kubelet/pods/%s/volumes/*/%s", pod_uid.c_str(), pv_name.c_str()), size);
}

}  // namespace k8s
