#include "json_rpc/json_rpc_channel.h"

#include <cerrno>
#include <new>

JSON_RPC_Channel::~JSON_RPC_Channel() = default;

int JSON_RPC_Channel::send_error(int code, const json_spirit::Value& id, const char* message,
                                 const json_spirit::Value& data) {
  JSON_RPC_Object_var error(new (std::nothrow) JSON_RPC_Response_Error(code, id, message, data));
  if (error.null()) {
    errno = ENOMEM;
    return -1;
  }
  return send(error);
}
