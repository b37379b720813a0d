#pragma once

#include "json_rpc/json_rpc_handler.h"

/**
 * Answers a poll: the state and the progress of the job `job_id`, and its final sizes once it is completed. The first
 * poll that sees a job completed removes its progress entry; later ones answer the same sizes. Runs on the caller's
 * thread.
 */
class JSON_RPC_K8S_Process_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) override;
};
