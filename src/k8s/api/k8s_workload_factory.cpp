#include "k8s/api/k8s_workload_factory.h"

#include <cerrno>
#include <new>

#include "ace/Log_Msg.h"
#include "k8s/api/k8s_cron_job.h"
#include "k8s/api/k8s_daemon_set.h"
#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_job.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_replica_set.h"
#include "k8s/api/k8s_stateful_set.h"

namespace {

template <typename Workload>
K8S_Workload_ptr make(K8S_Client_var client, const std::string& ns) {
  K8S_Workload_ptr workload(new (std::nothrow) Workload(std::move(client), ns));
  if (!workload) errno = ENOMEM;
  return workload;
}

}  // namespace

K8S_Workload_ptr K8S_Workload_Factory::create(K8S_Client_var client, K8S_Workload_Type workload_type,
                                              const std::string* ns) {
  const std::string name = ns ? *ns : std::string();
  switch (workload_type) {
    case CRONJOB_WORKLOAD:
      return make<K8S_Cron_Job>(std::move(client), name);
    case DEPLOYMENT_WORKLOAD:
      return make<K8S_Deployment>(std::move(client), name);
    case DAEMONSET_WORKLOAD:
      return make<K8S_Daemon_Set>(std::move(client), name);
    case JOB_WORKLOAD:
      return make<K8S_Job>(std::move(client), name);
    case POD_WORKLOAD:
      return make<K8S_Pod>(std::move(client), name);
    case REPLICASET_WORKLOAD:
      return make<K8S_Replica_Set>(std::move(client), name);
    case STATEFULSET_WORKLOAD:
      return make<K8S_Stateful_Set>(std::move(client), name);
    case UNKNOWN_WORKLOAD:
      break;
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("Unkown workload type '%d'.\n"), workload_type));
  return nullptr;
}
