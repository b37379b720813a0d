#pragma once

#include "json_rpc/json_rpc_handler.h"

/**
 * Takes the request for a job: registers a new task handler, submits a task with the request's `params` as they are,
 * and answers with the task's id at once. Nothing inside `params` is looked at here.
 *
 * @param type  "backup" or "restore"
 * @return what the channel returned for the answer; -1 where the requester has gone or @a obj is no request.
 */
int submit_job(const char* type, JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj);
