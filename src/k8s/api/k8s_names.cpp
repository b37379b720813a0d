#include <cstdlib>

#include <boost/algorithm/string/case_conv.hpp>

#include "ace/Log_Msg.h"
#include "json_spirit/assign.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/rand_char.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;

namespace k8s {

namespace {

template <typename T>
T get_value(const Key2_Value_T<T>* table, const char* key, T unknown) {
  return kolt::is_null_or_empty(key) ? unknown : get_key_value_entry(table, key)->value;
}

Object container(const char* image) {
  // Limits and requests are equal.
  const Object_Maker amount = Object_Maker()("cpu", "100m")("memory", "100Mi");
  return Object_Maker()("name", generate_random_string(16))("image", image)("imagePullPolicy", "IfNotPresent")(
             "volumeMounts", Array())("resources", Object_Maker()("limits", amount)("requests", amount))
      .get_obj();
}

}  // namespace

const char* get_workload_name(K8S_Workload_Type type) {
  return get_key_value_entry(workload_type_name_table, type)->key;
}

K8S_Workload_Type get_workload_type(const char* name) {
  return get_value(workload_type_name_table, name, UNKNOWN_WORKLOAD);
}

const char* get_pvc_backup_type_name(K8S_PVC_Backup_Type type) {
  return get_key_value_entry(pvc_backup_type_name_table, type)->key;
}

K8S_PVC_Backup_Type get_pvc_backup_type(const char* name) {
  return get_value(pvc_backup_type_name_table, name, UNKNOWN_TYPE);
}

const char* get_api_group_type_name(K8S_API_Group_Type type) {
  return get_key_value_entry(api_group_type_name_table, type)->key;
}

K8S_API_Group_Type get_api_group_type(const char* name) {
  return get_value(api_group_type_name_table, name, UNKNOWN_GROUP);
}

const char* get_check_status_name(Check_Status status) {
  return get_key_value_entry(check_status_name_table, status)->key;
}

Check_Status get_check_status_type(const char* name) {
  return get_value(check_status_name_table, name, UNKNOWN);
}

std::string kind_to_resource(std::string kind) {
  if (kind.size() <= 1) return kind;
  const char last = kind.back();
  if (last == 'y') {
    kind.replace(kind.size() - 1, 1, "ies");
  } else if (last != 's') {
    kind += 's';
  } else if (kind[kind.size() - 2] == 's') {
    kind += "es";
  }
  boost::algorithm::to_lower(kind);
  return kind;
}

std::string generate_random_string(unsigned short len) {
  std::string text(len, '\0');
  for (char& c : text) c = kolt::rand_char(kolt::RCS_LOWER);
  return text;
}

std::string generate_resource_name(const std::string& origin, const std::string& product) {
  return boost::algorithm::to_lower_copy(string_sprintf("%s-%s", origin.c_str(), product.c_str()));
}

query_map_type label() {
  return {{"component", "tessarin-agent"}};
}

query_selectors selector() {
  return {{"labelSelector", label()}};
}

bool set_template_pod(Object& obj) {
  const char* image = std::getenv("POD_IMAGE");
  if (image == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get env value POD_IMAGE.\n")));
    return false;
  }

  json_spirit::insert(obj)("apiVersion", "v1")("kind", "Pod")(
      "metadata",
      Object_Maker()("name", generate_random_string(16))("namespace", "")("labels", Object_Maker()(label())))(
      "spec", Object_Maker()("containers", Array{container(image)})("volumes", Array()));
  return true;
}

}  // namespace k8s
