#pragma once

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"

// The checks and the error answers that the handlers share. The int functions return what their caller is to return.

/// Logs that nobody waits for the answer any more. @return -1
int requester_has_gone();

/// @return what the channel returned
int send_invalid_params(JSON_RPC_Channel& channel, const JSON_RPC_Request& request, const char* message);
int send_internal_error(JSON_RPC_Channel& channel, const JSON_RPC_Request& request, const char* message);
int send_out_of_memory(JSON_RPC_Channel& channel, const JSON_RPC_Request& request);

/// A response to @a request that owns its result; null with errno ENOMEM if there is no memory.
JSON_RPC_Response* new_response(const JSON_RPC_Request& request);
