#include "json_rpc/json_rpc_object.h"

#include "json_spirit/dump.h"

using json_spirit::Object;
using json_spirit::Value;

JSON_RPC_Object::~JSON_RPC_Object() = default;

Object JSON_RPC_Object::to_object() const {
  Object members;
  members["jsonrpc"] = Value(version());
  write_members(members);
  return members;
}

void JSON_RPC_Request_Base::write_members(Object& members) const {
  members["id"] = id_;
  members["method"] = Value(method_);
}

JSON_RPC_Request* JSON_RPC_Request::narrow(JSON_RPC_Object* object) {
  return object && object->is_request() ? static_cast<JSON_RPC_Request*>(object) : nullptr;
}

void JSON_RPC_Request::write_members(Object& members) const {
  JSON_RPC_Request_Base::write_members(members);
  if (!params_.is_null()) members["params"] = params_;
}

void JSON_RPC_Notify::write_members(Object& members) const {
  JSON_RPC_Request::write_members(members);
  members.erase("id");
}

JSON_RPC_Response::JSON_RPC_Response(const JSON_RPC_Request_Base* request) : JSON_RPC_Object(RESPONSE) {
  if (request) id_ = request->id();
}

void JSON_RPC_Response::write_members(Object& members) const {
  members["id"] = id_;
  members["result"] = result_;
}

JSON_RPC_Response_Error::JSON_RPC_Response_Error(int code, const Value& id, const char* message, const Value& data)
    : JSON_RPC_Object(RESPONSE_ERROR), code_(code), id_(id), message_(message ? message : ""), data_(data) {}

void JSON_RPC_Response_Error::write_members(Object& members) const {
  Object error;
  error["code"] = Value(code_);
  error["message"] = Value(message_);
  if (!data_.is_null()) error["data"] = data_;
  members["id"] = id_;
  members["error"] = Value(std::move(error));
}

JSON_RPC_Object_Dump::JSON_RPC_Object_Dump(const JSON_RPC_Object& object, Flags flags)
    : text_(json_spirit::JSON_Dump(Value(object.to_object()), (flags & FG_PRETTY) != 0).str()) {}
