#include "json_rpc/json_rpc_handler.h"

JSON_RPC_Handler::~JSON_RPC_Handler() = default;

int JSON_RPC_Handler::init(int, char*[]) {
  return 0;
}

int JSON_RPC_Handler::fini() {
  return 0;
}

int JSON_RPC_Handler::handle(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) {
  const Context context{handle_object(channel, object)};
  handle_object_post(context, JSON_RPC_Channel_var(channel), object);
  return context.result;
}

int JSON_RPC_Handler::handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) {
  return -1;
}

int JSON_RPC_Handler::handle_object_post(const Context&, JSON_RPC_Channel_var, JSON_RPC_Object_var) {
  return 0;
}

JSON_RPC_Params_Handler* JSON_RPC_Handler::create_params_handler() {
  return nullptr;
}
