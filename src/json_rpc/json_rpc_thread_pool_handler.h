#pragma once

#include "ace/Time_Value.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_handler_impl_base.h"
#include "kolt/export.h"

/**
 * A handler whose work is done by a worker of JSON_RPC_Thread_Pool.
 *
 * The channel is held while the message waits in the queue. A message that cannot be queued is logged and gets no
 * answer. The pool is closed before the handler is destroyed.
 */
class TESSARIN_API JSON_RPC_Thread_Pool_Handler : public JSON_RPC_Handler {
 public:
  /// Queues the message. Always 0.
  int handle(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override;

  /// What a worker calls with what was queued; @a channel may be null.
  void run(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object);

 private:
  /// The moment until which handle() waits for room in the queue. One long past: a full queue refuses at once, since
  /// the channel's thread serves other requesters too.
  ACE_Time_Value abs_timeout_ = ACE_Time_Value::zero;
};

/// The base of pooled handlers: dispatches by kind, on a worker. A handler overrides handle_request().
class TESSARIN_API JSON_RPC_Thread_Pool_Handler_Impl : public JSON_RPC_Thread_Pool_Handler,
                                                       public JSON_RPC_Handler_Impl_Base {
 public:
  explicit JSON_RPC_Thread_Pool_Handler_Impl(Mode mode) : JSON_RPC_Handler_Impl_Base(mode) {}

  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override;

  virtual int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object);
};
