#include "k8s/api/k8s_volume_snapshot_class.h"

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_cluster.h"
#include "kolt/check_macros.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Value;

K8S_Volume_Snapshot_Class::K8S_Volume_Snapshot_Class(K8S_Client_var client)
    : K8S_Resource(std::move(client),
                   string_sprintf("/apis/%s/volumesnapshotclasses",
                                  K8S_Cluster::instance()->get_resource_gv("volumesnapshotclasses").c_str()),
                   "") {}

K8S_Volume_Snapshot_Class::~K8S_Volume_Snapshot_Class() = default;

bool K8S_Volume_Snapshot_Class::get_snapshot_class_name(const std::string& driver_name, std::string& res) {
  KOLT_RETURN_IF_NULL(client_, false);
  Value val;
  if (!list(val, {})) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get snapshot class list.\n")));
    return false;
  }

  Value* items_val = json_spirit::object_get_value(val.get_obj(), "items");
  if (items_val)
    KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_volume_snapshot_class", items_val->type() == json_spirit::array_type, *items_val,
                          "array", false);
  if (!items_val || items_val->get_array().empty()) {
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to extract snapshot class items from '%s'.\n"), JSON_Dump(val, false).c_str()));
    return false;
  }

  for (Value& item : items_val->get_array()) {
    if (item.type() != json_spirit::obj_type) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Class items is not object type.\n")));
      return false;
    }
    const std::string* driver = json_spirit::object_get_str(std::as_const(item).get_obj(), "driver");
    if (kolt::is_null_or_empty(driver)) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract driver with name form %s.\n"), JSON_Dump(item, false).c_str()));
      return false;
    }
    if (*driver == driver_name) {
      pextract(std::as_const(item))("/metadata/name", res);
      return !res.empty();
    }
  }
  return false;
}
