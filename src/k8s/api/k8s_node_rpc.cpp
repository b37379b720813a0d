#include "http/http_response.h"
#include "http/json_restful_client.h"
#include "http/websocket_options.h"
#include "json_rpc/json_rpc_id_generator.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/log_with_dump.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/make_shared_nothrow.h"

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;
using json_spirit::Value_type;

namespace k8s {

namespace {

constexpr int ok = 200;
constexpr char rpc_path[] = "/d2/jr";

/// The address of the agent's pod on the node.
bool find_agent(const std::string& node_name, std::string& address) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  const K8S_Cluster& cluster = *K8S_Cluster::instance();
  const query_map_type on_node{{"spec.nodeName", node_name}};
  const query_map_type agents{{cluster.get_aux_key(), cluster.get_aux_value()}};
  const query_selectors selectors{{"fieldSelector", on_node}, {"labelSelector", agents}};
  Value pods;
  if (!K8S_Pod(client, cluster.get_current_ns()).list(pods, selectors) || pods.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list pods for node '%s'.\n"), node_name.c_str()));
    return false;
  }
  std::string* pod_ip = nullptr;
  pextract(pods)("/items/0/status/podIP", pod_ip);
  KOLT_RETURN_IF_EMPTY(pod_ip, false);
  address = std::move(*pod_ip);
  return true;
}

/// Posts @a request; @a answer receives the document of an answer with status 200.
bool send(const std::string& address, const Value& request, Value& answer) {
  Common_JSON_RESTful_Client agent(address.c_str(), K8S_Cluster::instance()->get_aux_port(),
                                   WebSocket_Options::instance()->ssl(), false, true);
  HTTP_Response response;
  if (agent.post(rpc_path, &request, response, &answer) && response.status() == ok &&
      answer.type() == json_spirit::obj_type)
    return true;
  log_with_dump(LM_ERROR, "Failed to send json rpc to '%s', resp_data '%s' type '%d'.\n", address.c_str(),
                JSON_Dump(answer, false), answer.type());
  return false;
}

bool take_result(Object& answer, Value_type required_type, Value& result) {
  switch (required_type) {
    case json_spirit::obj_type: {
      Object* obj_ptr = json_spirit::object_get_object(answer, "result");
      KOLT_RETURN_IF_NULL(obj_ptr, false);
      result = std::move(*obj_ptr);
      return true;
    }
    case json_spirit::str_type: {
      std::string* str_ptr = json_spirit::object_get_str(answer, "result");
      KOLT_RETURN_IF_NULL(str_ptr, false);
      result = std::move(*str_ptr);
      return true;
    }
    default:
      ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid response required type '%d'.\n"), required_type));
      return false;
  }
}

}  // namespace

bool node_rpc_request(const std::string& node_name, const std::string& method, const Object& params, Value& result,
                      Value_type response_required_type) {
  std::string address;
  if (!find_agent(node_name, address)) return false;
  const Object_Maker request = Object_Maker()("id", JSON_RPC_Id_Generator::get())(
      "jsonrpc", JSON_RPC_Request().version())("method", method)("params", params);
  Value answer;
  return send(address, request, answer) && take_result(answer.get_obj(), response_required_type, result);
}

bool get_ramdom_online_aux_agent(std::string& node_name) {
  Array nodes;
  if (!K8S_Cluster::instance()->list_aux_nodes(nodes) || nodes.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list auxiliary nodes.\n")));
    return false;
  }
  KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_utils", nodes[0].type() == json_spirit::str_type, nodes[0], "string", false);
  node_name = std::move(nodes[0].get_str());
  return !node_name.empty();
}

}  // namespace k8s
