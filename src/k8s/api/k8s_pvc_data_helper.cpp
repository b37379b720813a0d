#include "k8s/api/k8s_pvc_data_helper.h"

#include "ace/Null_Mutex.h"
#include "ace/Singleton.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_storage_class_capability_config.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/first_match.h"
#include "kolt/get_env_r.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/scoped_deleter.h"

using json_spirit::Value;

namespace {

typedef ACE_Unmanaged_Singleton<Storage_Class_Config, ACE_Null_Mutex> Config_Singleton;

constexpr char config_path[] = "/opt/storage_class/config.json";

}  // namespace

Storage_Class_Config* Storage_Class_Config::instance() {
  return Config_Singleton::instance();
}

void Storage_Class_Config::close_instance() {
  Config_Singleton::close();
}

void Storage_Class_Config_fini() {
  Storage_Class_Config::close_instance();
}

const char* Storage_Class_Config::get_sc_type_name(Storage_Class_Type type) {
  return get_key_value_entry(sc_type_name_table, type)->key;
}

Storage_Class_Type Storage_Class_Config::get_sc_type(const char* name) {
  return kolt::is_null_or_empty(name) ? SC_TYPE_UNKNOWN : get_key_value_entry(sc_type_name_table, name)->value;
}

bool Storage_Class_Config::init(bool validate_sc_capability, int retry_time_out) {
  status_ = RUNNING;
  bool result = true;
  const auto set_status = make_deleter([&] { status_ = result ? COMPLETED : ERROR; });
  result = init_i();
  if (!result || !validate_sc_capability) return result;
  result = update_sc_capability_config(retry_time_out);
  if (result) sc_validated_ = true;  // a later failure does not take it back
  return result;
}

bool Storage_Class_Config::init_i() {
  Value config;
  if (!json_spirit::load_json(config_path, config, json_spirit::LOAD_STRICT) ||
      config.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to load %s, please create a configmap and mount it to the corresponding directory.\n"),
               config_path));
    return false;
  }
  csi_scs_.clear();
  local_scs_.clear();
  nfs_scs_.clear();
  for (const auto& type : std::as_const(config).get_obj()) {
    KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_pvc_data_helper", type.second.type() == json_spirit::array_type, type.second,
                          "array", false);
    Storage_Class_Map* scs = map_of(get_sc_type(type.first.c_str()));
    if (!scs) continue;
    for (const std::string& sc : type.second.get_array() | json_spirit::get_str) scs->emplace(sc, CAPABILITY_NONE);
  }
  return true;
}

Storage_Class_Map* Storage_Class_Config::map_of(Storage_Class_Type type) {
  switch (type) {
    case SC_TYPE_CSI:
      return &csi_scs_;
    case SC_TYPE_LOCAL:
      return &local_scs_;
    case SC_TYPE_NFS:
      return &nfs_scs_;
    default:
      return nullptr;
  }
}

bool Storage_Class_Config::update_sc_capability_config(int retry_time_out) {
  K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  const std::string ns = get_env_r("CURRENT_NAMESPACE");
  if (ns.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to retrieve current namespace.")));
    return false;
  }
  Storage_Class_Capability_Config config(client, ns, retry_time_out);
  if (!config.init(csi_scs_, nfs_scs_, local_scs_) || !config.update()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to update sc-capability-config.\n")));
    return false;
  }
  config.set_scs_capabilities(csi_scs_, nfs_scs_, local_scs_);
  ACE_DEBUG((LM_INFO, ACE_TEXT("Successfully check storage classes capability.\n")));
  return true;
}

std::string Storage_Class_Config::get_status_name() const {
  const char* name = k8s::get_check_status_name(status_);
  return name ? name : "";
}

Storage_Class_Type Storage_Class_Config::sc_to_type(const std::string& sc) const {
  if (csi_scs_.contains(sc)) return SC_TYPE_CSI;
  if (local_scs_.contains(sc)) return SC_TYPE_LOCAL;
  if (nfs_scs_.contains(sc)) return SC_TYPE_NFS;
  return SC_TYPE_UNKNOWN;
}

bool Storage_Class_Config::check_clone(const std::string& sc) const {
  return check(sc, CAPABILITY_CLONE);
}

bool Storage_Class_Config::check_snapshot(const std::string& sc) const {
  return check(sc, CAPABILITY_SNAP);
}

bool Storage_Class_Config::check(const std::string& sc, Capability_Flag flag) const {
  if (!sc_validated_) return true;
  const auto found = csi_scs_.find(sc);
  return found != csi_scs_.end() && (found->second & flag);
}

bool glob_path(std::string& path) {
  path = first_match(path).value_or("");
  return !path.empty();
}
