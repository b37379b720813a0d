#include "k8s/api/k8s_job.h"

#include "kolt/string_sprintf.h"

K8S_Job::K8S_Job(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/apis/batch/v1/namespaces/%s/jobs", ns.c_str()),
                   "/apis/batch/v1/jobs", "/spec/template/spec/volumes") {}

K8S_Job::~K8S_Job() = default;
