#include "json_rpc/json_rpc_thread_pool_handler.h"

#include "ace/Log_Msg.h"
#include "json_rpc/json_rpc_thread_pool.h"

int JSON_RPC_Thread_Pool_Handler::handle(JSON_RPC_Channel_ptr channel_ptr, JSON_RPC_Object_var object) {
  const JSON_RPC_Channel_var channel(channel_ptr);
  const auto work = [this, channel, object] { run(channel, object); };
  if (JSON_RPC_Thread_Pool::instance()->schedule(abs_timeout_, work) <= 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to schedule handling of JSON-RPC %s into thread pool queue.\n"),
               object.null() ? "(null)" : JSON_RPC_Object_Dump(*object, 0).c_str()));
  }
  return 0;
}

void JSON_RPC_Thread_Pool_Handler::run(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object) {
  handle_object(JSON_RPC_Channel_ptr(channel), object);
}

int JSON_RPC_Thread_Pool_Handler_Impl::handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) {
  return handle_object_i(JSON_RPC_Channel_var(channel), object);
}

int JSON_RPC_Thread_Pool_Handler_Impl::handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object) {
  return handle_object_t(channel, object);
}
