#include "k8s/api/k8s_deployment.h"

#include "json_spirit/log_with_dump.h"
#include "kolt/check_macros.h"
#include "kolt/path.h"
#include "kolt/string_sprintf.h"

using json_spirit::JSON_Dump;
using json_spirit::Value;

K8S_Deployment::K8S_Deployment(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/apis/apps/v1/namespaces/%s/deployments", ns.c_str()),
                   "/apis/apps/v1/deployments", "/spec/template/spec/volumes") {}

K8S_Deployment::~K8S_Deployment() = default;

bool K8S_Deployment::patch(const std::string& name, const Value& req_body) {
  KOLT_RETURN_IF_NULL(client_, false);
  const std::string url = kolt::Path(url_, name, "scale", '/', false).str();
  const bool patched = client_->patch(url, req_body, "application/merge-patch+json");
  if (patched && client_->get_response_code() == 200) return true;
  log_with_dump(LM_ERROR, "Failed to patch type %s info\n%s\n type %d status %d\n", type_name(),
                JSON_Dump(req_body, true), req_body.type(), client_->get_response_code());
  return false;
}
