#include "k8s/api/k8s_cron_job.h"

#include "k8s/api/k8s_cluster.h"
#include "kolt/string_sprintf.h"

namespace {

const char* group_version() {
  return K8S_Cluster::instance()->get_resource_gv("cronjobs").c_str();
}

}  // namespace

K8S_Cron_Job::K8S_Cron_Job(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/apis/%s/namespaces/%s/cronjobs", group_version(), ns.c_str()),
                   string_sprintf("/apis/%s/cronjobs", group_version()), "/spec/jobTemplate/spec/volumes") {}

K8S_Cron_Job::~K8S_Cron_Job() = default;
