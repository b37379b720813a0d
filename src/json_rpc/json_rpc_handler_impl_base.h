#pragma once

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"
#include "kolt/export.h"

/**
 * Hands a message on by its kind.
 *
 * A request goes handle_request_i() -> handle_request(), a notification to handle_notify(); with COMBINED both go to
 * handle_request_or_notify(). All get the bare channel, which the caller holds for the time of the call; it is null
 * when the requester had gone. All return what handle_object_t() returns: 0, or -1 for a failure.
 *
 * What a handler does not override answers a request with JSON_RPC_E_METHOD_NOT_FOUND and passes over the other kinds
 * with 0.
 *
 * The order of the virtual operations is part of the interface to plug-ins.
 */
class TESSARIN_API JSON_RPC_Handler_Impl_Base {
 public:
  enum Mode { SEPARATE = 0, COMBINED = 1 };

  explicit JSON_RPC_Handler_Impl_Base(Mode mode) : mode_(mode) {}
  virtual ~JSON_RPC_Handler_Impl_Base();

  virtual int handle_request_or_notify(JSON_RPC_Channel* channel, JSON_RPC_Request& request);
  virtual int handle_request_or_notify(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request);
  virtual int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request);
  virtual int handle_request(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request);
  virtual int handle_notify(JSON_RPC_Channel* channel, JSON_RPC_Request& notify);
  virtual int handle_notify(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& notify);
  virtual int handle_response(JSON_RPC_Channel* channel, JSON_RPC_Response& response);
  virtual int handle_response_error(JSON_RPC_Channel* channel, JSON_RPC_Response_Error& error);
  virtual int handle_request_i(JSON_RPC_Channel* channel, JSON_RPC_Request& request);
  virtual int handle_request_i(JSON_RPC_Channel* channel, JSON_RPC_YAJL_Request& request);

  /// Dispatches @a object. -1 with a line at LM_EMERGENCY if it is null.
  int handle_object_t(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object);

 private:
  const Mode mode_;
};
