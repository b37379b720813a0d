#include "k8s/api/k8s_daemon_set.h"

#include "kolt/string_sprintf.h"

K8S_Daemon_Set::K8S_Daemon_Set(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/apis/apps/v1/namespaces/%s/daemonsets", ns.c_str()),
                   "/apis/apps/v1/daemonsets", "/spec/jobTemplate/spec/volumes") {}

K8S_Daemon_Set::~K8S_Daemon_Set() = default;
