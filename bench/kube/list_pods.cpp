// Prints the names of all pods of a cluster as `kubectl get pods -A -o name` does, so that the two can be compared as
// whole processes: bench/kube/run does. The cluster is the service account's, as in a pod.
#include <cstdio>
#include <string>

#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_pod.h"
#include "kolt/make_shared_nothrow.h"

int main() {
  K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  json_spirit::Value reply;
  if (client == nullptr || !K8S_Pod(client, "").list_all(reply, {})) return 1;

  const json_spirit::Array* items = nullptr;
  json_spirit::extract(reply.get_obj())("items", items);
  if (items == nullptr) return 1;
  for (const json_spirit::Value& item : *items) {
    const std::string* name = nullptr;
    json_spirit::pextract(item)("/metadata/name", name);
    if (name == nullptr) return 1;
    std::printf("pod/%s\n", name->c_str());
  }
  return 0;
}
