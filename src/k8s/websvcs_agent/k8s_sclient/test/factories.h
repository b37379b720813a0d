#pragma once

#include "json_rpc/json_rpc_handler.h"

extern "C" {
JSON_RPC_Handler* _make_JSON_RPC_K8S_Backup_Handler(JSON_RPC_Handler_Exterminator* gobbler);
JSON_RPC_Handler* _make_JSON_RPC_K8S_Restore_Handler(JSON_RPC_Handler_Exterminator* gobbler);
JSON_RPC_Handler* _make_JSON_RPC_K8S_Process_Handler(JSON_RPC_Handler_Exterminator* gobbler);
JSON_RPC_Handler* _make_JSON_RPC_K8S_Cancel_Job_Handler(JSON_RPC_Handler_Exterminator* gobbler);
JSON_RPC_Handler* _make_JSON_RPC_K8S_Get_PVC_Size_Handler(JSON_RPC_Handler_Exterminator* gobbler);
}

typedef JSON_RPC_Handler* (*JSON_RPC_Handler_Factory)(JSON_RPC_Handler_Exterminator*);
