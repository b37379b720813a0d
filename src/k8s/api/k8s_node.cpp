#include "k8s/api/k8s_node.h"

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "kolt/check_macros.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

K8S_Node::K8S_Node(K8S_Client_var client) : K8S_Resource(std::move(client), "/api/v1/nodes", "") {}

K8S_Node::~K8S_Node() = default;

bool K8S_Node::delete_(const std::string&, bool, int) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("K8S node delete method not implemented.\n")));
  return false;
}

bool K8S_Node::post(const Value&) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("K8S node post method not implemented.\n")));
  return false;
}

bool K8S_Node::get_node_addr(const std::string& name, std::string& addr) {
  Value val;
  if (!get(name, val, true)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get node information for %s.\n"), name.c_str()));
    return false;
  }
  KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_node", val.type() == json_spirit::obj_type, val, "object", false);

  Array* addrs = nullptr;
  pextract(val)("/status/addresses", addrs);
  KOLT_RETURN_IF_EMPTY(addrs, false);
  for (Object& entry : *addrs | json_spirit::get_obj) {
    std::string *address = nullptr, *type = nullptr;
    extract(entry)("address", address)("type", type);
    KOLT_RETURN_IF_EMPTY(type, false);
    KOLT_RETURN_IF_EMPTY(address, false);
    if (*type == "InternalIP") {
      addr = std::move(*address);
      return true;
    }
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get node address for %s.\n"), name.c_str()));
  return false;
}
