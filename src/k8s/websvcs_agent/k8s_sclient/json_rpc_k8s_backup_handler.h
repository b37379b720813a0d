#pragma once

#include "json_rpc/json_rpc_handler.h"

/// Takes the request for a backup of volumes and answers with the id of the task that runs it. Runs on the caller's
/// thread.
class JSON_RPC_K8S_Backup_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) override;
};
