#include <algorithm>
#include <unordered_set>

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_namespace.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/check_macros.h"
#include "kolt/make_shared_nothrow.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace k8s {

namespace {

constexpr char namespace_type[] = "namespace";

bool has_lower_key(const Object::value_type& a, const Object::value_type& b) {
  return a.first < b.first;
}

/// Whether the workload with these labels is one of those that the owner's selector is after.
bool stands_for(const K8S_Client_var& client, const std::string& ns, const Value& v, const Object& labels) {
  KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_utils", v.type() == json_spirit::obj_type, v, "object", false);
  const std::string *owner_kind = nullptr, *owner_name = nullptr;
  extract(v.get_obj())("kind", owner_kind)("name", owner_name);
  KOLT_RETURN_IF_EMPTY(owner_kind, false);
  KOLT_RETURN_IF_EMPTY(owner_name, false);

  const K8S_Workload_Type type = get_workload_type(kind_to_resource(*owner_kind).c_str());
  if (type == UNKNOWN_WORKLOAD) return false;
  const K8S_Workload_ptr workload = K8S_Workload_Factory::create(client, type, &ns);
  Value owner;
  if (!workload || !workload->get(*owner_name, owner, true)) return false;

  const Object* match_labels = nullptr;
  pextract(std::as_const(owner))("/spec/selector/matchLabels", match_labels);
  KOLT_RETURN_IF_EMPTY(match_labels, false);
  return std::includes(labels.begin(), labels.end(), match_labels->begin(), match_labels->end(), has_lower_key);
}

}  // namespace

bool should_skip_workload(K8S_Client_var client, const std::string& ns, const Value& wk) {
  const Array* owners = nullptr;
  const Object* labels = nullptr;
  pextract(wk).chroot("/metadata")("/ownerReferences", owners)("/labels", labels);
  if (kolt::is_null_or_empty(labels) || kolt::is_null_or_empty(owners)) return false;
  return std::any_of(owners->begin(), owners->end(),
                     [&](const Value& owner) { return stands_for(client, ns, owner, *labels); });
}

bool deduplicate_backup_entries(const Array& entries, std::vector<Backup_Resource>& result) {
  std::unordered_set<std::string> whole_namespaces;
  for (const Object& entry : entries | json_spirit::get_obj) {
    const std::string *type = nullptr, *name = nullptr, *ns = nullptr;
    extract(entry)("type", type)("name", name)("namespace", ns);
    KOLT_RETURN_IF_EMPTY(type, false);
    KOLT_RETURN_IF_EMPTY(name, false);
    KOLT_RETURN_IF_EMPTY(ns, false);
    if (*type == namespace_type)
      whole_namespaces.insert(*ns);
    else if (whole_namespaces.contains(*ns))
      continue;
    result.push_back({*type, *ns, *name});
  }
  return true;
}

bool is_entry_present(const std::string& name, const std::string& ns, const std::string& type) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  Value val;
  if (type == namespace_type) return K8S_Namespace(client).get(name, val, false);
  const K8S_Workload_ptr workload = K8S_Workload_Factory::create(client, get_workload_type(type.c_str()), &ns);
  KOLT_RETURN_IF_NULL(workload, false);
  return workload->get(name, val, true);
}

}  // namespace k8s
