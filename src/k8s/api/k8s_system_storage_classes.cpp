#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/make_shared_nothrow.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace k8s {

bool get_system_storage_classes(Storage_Class_Set& result) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  Value val;
  if (!K8S_Storage_Class(client).list(val, {}) || val.type() != json_spirit::obj_type) return false;
  Array* items = json_spirit::object_get_array(val.get_obj(), "items");
  KOLT_RETURN_IF_NULL(items, false);
  for (Object& item : *items | json_spirit::get_obj) {
    std::string* sc = nullptr;
    pextract(item)("/metadata/name", sc);
    KOLT_RETURN_IF_EMPTY(sc, false);
    result.insert(std::move(*sc));
  }
  return true;
}

}  // namespace k8s
