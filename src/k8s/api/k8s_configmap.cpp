#include "k8s/api/k8s_configmap.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "kolt/check_macros.h"
#include "kolt/path.h"
#include "kolt/string_sprintf.h"

using json_spirit::JSON_Dump;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

/// The "data" of a config map: the document travels as JSON text inside a JSON string.
Value config_data(const Value& config_json) {
  return Object_Maker()("config.json", JSON_Dump(config_json, false).str());
}

}  // namespace

K8S_Config_Map::K8S_Config_Map(K8S_Client_var client, const std::string& ns)
    : K8S_Resource(std::move(client), string_sprintf("/api/v1/namespaces/%s/configmaps/", ns.c_str()), ""), ns_(ns) {}

K8S_Config_Map::~K8S_Config_Map() = default;

bool K8S_Config_Map::create(const std::string& name, const Value& config_json, const std::string& api_version) {
  return post(Object_Maker()("apiVersion", api_version)("kind", "ConfigMap")(
      "metadata", Object_Maker()("name", name)("namespace", ns_))("data", config_data(config_json)));
}

bool K8S_Config_Map::patch(const std::string& name, const Value& config_json, const char* content_type) {
  KOLT_RETURN_IF_NULL(client_, false);
  const Value body = Object_Maker()("data", config_data(config_json));
  return client_->patch(kolt::Path(url_, name, '/', false).str(), body, content_type);
}
