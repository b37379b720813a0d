#include "json_rpc/json_rpc_handler_impl_base.h"

#include "json_rpc/json_rpc_error_code.h"
#include "kolt/check_macros.h"

namespace {

int refuse(JSON_RPC_Channel* channel, const JSON_RPC_Request_Base& request) {
  if (!channel) return -1;
  return channel->send_error(JSON_RPC_E_METHOD_NOT_FOUND, request.id(), "Method not found.", json_spirit::Value::null);
}

}  // namespace

JSON_RPC_Handler_Impl_Base::~JSON_RPC_Handler_Impl_Base() = default;

int JSON_RPC_Handler_Impl_Base::handle_request_or_notify(JSON_RPC_Channel* channel, JSON_RPC_Request& request) {
  return request.is_request() ? refuse(channel, request) : 0;
}

int JSON_RPC_Handler_Impl_Base::handle_request_or_notify(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request) {
  return refuse(channel, request);
}

int JSON_RPC_Handler_Impl_Base::handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) {
  return refuse(channel, request);
}

int JSON_RPC_Handler_Impl_Base::handle_request(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request) {
  return refuse(channel, request);
}

int JSON_RPC_Handler_Impl_Base::handle_notify(JSON_RPC_Channel*, JSON_RPC_Request&) {
  return 0;
}

int JSON_RPC_Handler_Impl_Base::handle_notify(JSON_RPC_Channel*, JSON_RPC_YAJL_Request&) {
  return 0;
}

int JSON_RPC_Handler_Impl_Base::handle_response(JSON_RPC_Channel*, JSON_RPC_Response&) {
  return 0;
}

int JSON_RPC_Handler_Impl_Base::handle_response_error(JSON_RPC_Channel*, JSON_RPC_Response_Error&) {
  return 0;
}

int JSON_RPC_Handler_Impl_Base::handle_request_i(JSON_RPC_Channel* channel, JSON_RPC_Request& request) {
  return mode_ == COMBINED ? handle_request_or_notify(channel, request) : handle_request(channel, request);
}

int JSON_RPC_Handler_Impl_Base::handle_request_i(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request) {
  return mode_ == COMBINED ? handle_request_or_notify(channel, request) : handle_request(channel, request);
}

int JSON_RPC_Handler_Impl_Base::handle_object_t(JSON_RPC_Channel_var channel_var, JSON_RPC_Object_var object) {
  KOLT_RETURN_IF_NULL(object, -1);
  JSON_RPC_Channel* const channel = channel_var.get();
  switch (object->kind()) {
    case JSON_RPC_Object::REQUEST:
      return handle_request_i(channel, static_cast<JSON_RPC_Request&>(*object));
    case JSON_RPC_Object::YAJL_REQUEST:
      return handle_request_i(channel, static_cast<JSON_RPC_YAJL_Request&>(*object));
    case JSON_RPC_Object::NOTIFY: {
      auto& notify = static_cast<JSON_RPC_Request&>(*object);
      return mode_ == COMBINED ? handle_request_or_notify(channel, notify) : handle_notify(channel, notify);
    }
    case JSON_RPC_Object::RESPONSE:
      return handle_response(channel, static_cast<JSON_RPC_Response&>(*object));
    case JSON_RPC_Object::RESPONSE_ERROR:
      return handle_response_error(channel, static_cast<JSON_RPC_Response_Error&>(*object));
  }
  return -1;
}
