#include "support/kube_sim/pod_defaults.h"

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/defaults.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::object_get_str;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

const char token_path[] = "/var/run/secrets/kubernetes.io/serviceaccount";

bool mounts_token(const Object& spec) {
  const Array* containers = json_spirit::object_get_array(spec, "containers");
  if (!containers) return false;
  for (const Object& container : *containers | json_spirit::get_obj)
    if (const Array* mounts = json_spirit::object_get_array(container, "volumeMounts"))
      for (const Object& mount : *mounts | json_spirit::get_obj) {
        const auto* path = object_get_str(mount, "mountPath");
        if (path && *path == token_path) return true;
      }
  return false;
}

/// The token that each container gets, as a volume.
void mount_token(Object& spec, const std::string& volume) {
  Array sources;
  sources << Object_Maker()("serviceAccountToken", Object_Maker()("expirationSeconds", 3607)("path", "token"));
  Array items, fields;
  items << Object_Maker()("key", "ca.crt")("path", "ca.crt");
  sources << Object_Maker()("configMap", Object_Maker()("name", "kube-root-ca.crt")("items", items));
  fields << Object_Maker()("path", "namespace")("fieldRef",
                                                Object_Maker()("apiVersion", "v1")("fieldPath", "metadata.namespace"));
  sources << Object_Maker()("downwardAPI", Object_Maker()("items", fields));
  spec["volumes"].to_array() << Object_Maker()("name", volume)("projected",
                                                               Object_Maker()("sources", sources)("defaultMode", 420));
  for (const char* list : {"initContainers", "containers"}) {
    Array* containers = json_spirit::object_get_array(spec, list);
    if (!containers) continue;
    for (Object& container : *containers | json_spirit::get_obj)
      container["volumeMounts"].to_array() << Object_Maker()("name", volume)("readOnly", true)("mountPath", token_path);
  }
}

void default_container(Object& container) {
  std::string image;
  json_spirit::object_get(container, "image", image);
  const std::size_t colon = image.find(':', image.rfind('/') == std::string::npos ? 0 : image.rfind('/'));
  const bool latest = colon == std::string::npos || image.compare(colon, std::string::npos, ":latest") == 0;
  set_default(container, "imagePullPolicy", latest ? "Always" : "IfNotPresent");
  set_default(container, "resources", Object());
  set_default(container, "terminationMessagePath", "/dev/termination-log");
  set_default(container, "terminationMessagePolicy", "File");
}

}  // namespace

void set_default(Object& object, const char* key, Value value) {
  object.emplace(key, std::move(value));
}

void default_pod_spec(Object& spec) {
  set_default(spec, "restartPolicy", "Always");
  set_default(spec, "terminationGracePeriodSeconds", 30);
  set_default(spec, "dnsPolicy", "ClusterFirst");
  set_default(spec, "securityContext", Object());
  set_default(spec, "schedulerName", "default-scheduler");
  for (const char* list : {"initContainers", "containers"})
    if (Array* containers = json_spirit::object_get_array(spec, list))
      for (Object& container : *containers | json_spirit::get_obj) default_container(container);
  if (Array* volumes = json_spirit::object_get_array(spec, "volumes"))
    for (Object& volume : *volumes | json_spirit::get_obj)
      if (Object* host = json_spirit::object_get_object(volume, "hostPath")) set_default(*host, "type", "");
}

void default_pod(Object& pod) {
  Object& spec = pod["spec"].to_object();
  default_pod_spec(spec);
  set_default(spec, "serviceAccountName", "default");
  set_default(spec, "serviceAccount", spec["serviceAccountName"]);
  set_default(spec, "enableServiceLinks", true);
  set_default(spec, "preemptionPolicy", "PreemptLowerPriority");
  set_default(spec, "priority", 0);
  bool wanted = true;
  json_spirit::object_get(spec, "automountServiceAccountToken", wanted);
  if (wanted && !mounts_token(spec)) mount_token(spec, "kube-api-access-" + random_suffix());
  Object& status = pod["status"].to_object();
  set_default(status, "phase", "Pending");
  set_default(status, "qosClass", "BestEffort");
}

}  // namespace kube_sim
