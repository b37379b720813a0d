#include "json_rpc/json_rpc_parser.h"

#include <new>
#include <utility>

using json_spirit::Object;
using json_spirit::Value;

namespace {

bool valid_id(const Value& id) {
  const auto type = id.type();
  return type == json_spirit::str_type || type == json_spirit::int_type || type == json_spirit::real_type ||
         type == json_spirit::null_type;
}

bool has_string(const Object& members, const char* key, const char* text) {
  const auto member = members.find(key);
  return member != members.end() && member->second.type() == json_spirit::str_type &&
         (!text || member->second.get_str() == text);
}

}  // namespace

JSON_RPC_Object_var parse_json_rpc_request(Value&& document) {
  JSON_RPC_Object_var none;
  if (document.type() != json_spirit::obj_type) return none;
  Object& members = document.get_obj();
  const auto id = members.find("id");
  const auto params = members.find("params");
  if (!has_string(members, "jsonrpc", JSON_RPC_Object::version()) || !has_string(members, "method", nullptr))
    return none;
  if (id != members.end() && !valid_id(id->second)) return none;

  JSON_RPC_Request* const request =
      id == members.end() ? new (std::nothrow) JSON_RPC_Notify : new (std::nothrow) JSON_RPC_Request;
  JSON_RPC_Object_var message(request);
  if (!request) return none;
  request->method(members["method"].get_str());
  if (id != members.end()) request->id(id->second);
  if (params != members.end()) request->params() = std::move(params->second);
  return message;
}
