#pragma once

#include "json_rpc/json_rpc_thread_pool_handler.h"

/**
 * Asks the running job, whichever it is, to stop; `params` is not looked at. The answer says that the request was
 * recorded. With no job running it has no effect: the next job forgets it. Runs on a thread of the JSON-RPC pool.
 */
class JSON_RPC_K8S_Cancel_Job_Handler : public JSON_RPC_Thread_Pool_Handler_Impl {
 public:
  JSON_RPC_K8S_Cancel_Job_Handler();

  using JSON_RPC_Thread_Pool_Handler_Impl::handle_request;
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override;
};
