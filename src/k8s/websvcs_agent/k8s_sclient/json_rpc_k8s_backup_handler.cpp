#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_backup_handler.h"

#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_factory.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_submission.h"

K8S_SCLIENT_FACTORY_DEFINE(JSON_RPC_K8S_Backup_Handler)

int JSON_RPC_K8S_Backup_Handler::handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var obj) {
  return submit_job("backup", sender, obj);
}
