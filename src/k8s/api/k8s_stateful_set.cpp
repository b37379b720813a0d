#include "k8s/api/k8s_stateful_set.h"

#include "kolt/string_sprintf.h"

K8S_Stateful_Set::K8S_Stateful_Set(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/apis/apps/v1/namespaces/%s/statefulsets", ns.c_str()),
                   "/apis/apps/v1/statefulsets", "/spec/template/spec/volumes") {}

K8S_Stateful_Set::~K8S_Stateful_Set() = default;
