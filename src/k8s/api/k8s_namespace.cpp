#include "k8s/api/k8s_namespace.h"

#include "ace/Log_Msg.h"

K8S_Namespace::K8S_Namespace(K8S_Client_var client) : K8S_Resource(std::move(client), "/api/v1/namespaces", "") {}

K8S_Namespace::~K8S_Namespace() = default;

bool K8S_Namespace::delete_(const std::string&, bool, int) {
  ACE_DEBUG((LM_INFO, ACE_TEXT("K8S namespace delete method not implemented.\n")));
  return true;
}
