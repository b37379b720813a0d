#pragma once

#include "json_rpc/json_rpc_thread_pool_handler.h"

/**
 * Answers the bytes below a directory of this node: the first match of the glob pattern `path`. What can't be read
 * doesn't count and is no error. May take long. Runs on a thread of the JSON-RPC pool.
 */
class JSON_RPC_K8S_Get_PVC_Size_Handler : public JSON_RPC_Thread_Pool_Handler_Impl {
 public:
  JSON_RPC_K8S_Get_PVC_Size_Handler();

  using JSON_RPC_Thread_Pool_Handler_Impl::handle_request;
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override;
};
