#include "k8s/api/k8s_storage_class_capability_config.h"

#include <algorithm>
#include <ranges>

#include "json_spirit/assign.h"
#include "k8s/api/k8s_configmap.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "kolt/check_macros.h"
#include "kolt/get_env_r.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/retry_macros.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

typedef Storage_Class_Capability_Validation_Unit Unit;

namespace {

constexpr char config_map_name[] = "sc-capability-config";
constexpr char claim_kind[] = "PersistentVolumeClaim";
constexpr unsigned short random_name_length = 8;
/// For looks and deletions of which each round of a wait makes one: two looks, one short delay between them.
constexpr int one_retry = 1;

void append_units(Validation_Units& units, const Storage_Class_Map& scs) {
  for (const auto& sc : scs) units.emplace_back(sc.first, false);
}

Object config_entries(const Validation_Units& units, Storage_Class_Type type) {
  Object entries;
  for (const Unit& unit : units) unit.generate_config_entry(entries, type);
  return entries;
}

void tell_what_is_left() {
  const std::string ns = get_env_r("CURRENT_NAMESPACE");
  if (ns.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Cannot retrieve current namespace.")));
    return;
  }
  ACE_ERROR((LM_WARNING,
             ACE_TEXT("Failed to clean up all temporary resources, Please clean up them in namespace '%s' manually.\n"),
             ns.c_str()));
}

}  // namespace

bool delete_resource(Resource_Base& rs, K8S_Resource& client) {
  if (rs.name_.empty() || rs.deleted_) return true;
  rs.deleted_ = client.delete_(rs.name_, true, one_retry);
  return rs.deleted_;
}

Unit::Storage_Class_Capability_Validation_Unit(const std::string& sc_name, bool exist)
    : sc_name_(sc_name),
      sc_exist_on_system_(exist),
      need_immediate_mode_temp_sc_(exist && is_need_immediate_mode_temp_sc(sc_name)) {}

bool Unit::is_need_immediate_mode_temp_sc(const std::string& sc) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  Value val;
  if (!K8S_Storage_Class(client).get(sc, val, true) || val.type() != json_spirit::obj_type) return false;
  const std::string* mode = json_spirit::object_get_str(std::as_const(val).get_obj(), "volumeBindingMode");
  KOLT_RETURN_IF_EMPTY(mode, false);
  return *mode == "WaitForFirstConsumer";
}

bool Unit::create_temp_pvc(K8S_PVC& pvc_client, K8S_Client_var& client) {
  if (need_immediate_mode_temp_sc_ && !K8S_Storage_Class(client).create_immediate_sc(sc_name_, temp_sc_.name_))
    return false;

  // Named before it is made: a claim whose making seemed to fail may be there all the same.
  pvc_.name_ = k8s::generate_random_string(random_name_length);
  const Object resources{{"requests", Object{{"storage", "1Gi"}}}};
  if (pvc_client.create(pvc_.name_, need_immediate_mode_temp_sc_ ? temp_sc_.name_ : sc_name_, resources,
                        Array{"ReadWriteOnce"}, "Filesystem", "v1"))
    return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create pvc %s.\n"), pvc_.name_.c_str()));
  return false;
}

void Unit::clone_temp_pvc(K8S_PVC& pvc_client) {
  pvc_clone_.name_ = k8s::generate_resource_name(pvc_.name_, "clone");
  pvc_client.clone(pvc_.name_, pvc_clone_.name_);  // a failure shows in the wait
}

void Unit::create_snapshot_for_temp_pvc(K8S_Volume_Snapshot& snap_client, K8S_PVC& pvc_client) {
  pvc_snap_.name_ = k8s::generate_resource_name(pvc_.name_, "snap");
  snap_client.create_with_name(pvc_client, pvc_.name_, pvc_snap_.name_);  // a failure shows in the wait
}

bool Unit::are_pvcs_and_clone_bound(K8S_PVC& pvc_client) {
  if (!pvc_.bound_) pvc_.bound_ = pvc_client.is_bound(pvc_.name_, false, one_retry);
  if (pvc_.bound_ && !pvc_clone_.bound_) pvc_clone_.bound_ = pvc_client.is_bound(pvc_clone_.name_, false, one_retry);
  return pvc_.bound_ && pvc_clone_.bound_;
}

bool Unit::are_snapshots_ready_to_use(K8S_Volume_Snapshot& snap_client) {
  if (!pvc_snap_.ready_to_use_)
    pvc_snap_.ready_to_use_ = snap_client.is_ready_to_use(pvc_snap_.name_, false, one_retry);
  return pvc_snap_.ready_to_use_;
}

bool Unit::clean(K8S_PVC& pvc_client, K8S_Volume_Snapshot& snap_client, K8S_Storage_Class& sc_client) {
  bool cleaned = delete_resource(pvc_, pvc_client);
  cleaned = delete_resource(pvc_clone_, pvc_client) && cleaned;
  cleaned = delete_resource(pvc_snap_, snap_client) && cleaned;
  if (need_immediate_mode_temp_sc_) cleaned = delete_resource(temp_sc_, sc_client) && cleaned;
  return cleaned;
}

void Unit::report_unbound_pvcs(K8S_Events& event) const {
  if (!sc_exist_on_system_) return;
  const PVC_Resource_Status& pvc = pvc_.bound_ ? pvc_clone_ : pvc_;
  if (pvc.bound_) return;
  event.show(pvc.name_, claim_kind);
  ACE_ERROR((LM_WARNING, ACE_TEXT("PVC '%s' associated with storage class '%s' is not in bound status.\n"),
             pvc.name_.c_str(), sc_name_.c_str()));
}

void Unit::set_scs_capabilities(Storage_Class_Map& scs) const {
  Capability_Flag capability = pvc_.bound_ ? CAPABILITY_CLONE : CAPABILITY_NONE;
  if (pvc_snap_.ready_to_use_) capability |= CAPABILITY_SNAP;
  scs[sc_name_] = capability;
}

void Unit::generate_config_entry(Object& config, Storage_Class_Type type) const {
  const bool tested = type == SC_TYPE_CSI;
  config.emplace(sc_name_,
                 Object_Maker()("clone", !tested || pvc_.bound_)("snapshot", !tested || pvc_snap_.ready_to_use_));
}

Storage_Class_Capability_Config::Storage_Class_Capability_Config(K8S_Client_var& client, const std::string& ns,
                                                                 int retry_time_out)
    : client_(client), pvc_client_(client, ns), ns_(ns), retry_time_out_(retry_time_out) {}

Storage_Class_Capability_Config::~Storage_Class_Capability_Config() {
  ACE_DEBUG(
      (LM_INFO, ACE_TEXT("Start to clean up all temporary resources from the storage class capability validation.\n")));
  K8S_Volume_Snapshot snap_client(client_, ns_);
  K8S_Storage_Class sc_client(client_);
  // Once false it stays so: a clean-up that failed at first is told as failed, though further attempts are made.
  bool cleaned = true;
  const auto clean_all = [&] {
    for (Unit& unit : csi_validation_units_) cleaned = unit.clean(pvc_client_, snap_client, sc_client) && cleaned;
  };
  QVX_RETRY(K8S_QVX_RETRY_TIMES, retry_time_out_ / 3, clean_all(), cleaned, {
    tell_what_is_left();
    return;
  });
  ACE_DEBUG(
      (LM_INFO,
       ACE_TEXT("Successfully clean up all temporary resources from the storage class capability validation.\n")));
}

bool Storage_Class_Capability_Config::init(const Storage_Class_Map& csi_scs, const Storage_Class_Map& nfs_scs,
                                           const Storage_Class_Map& local_scs) {
  append_units(nfs_validation_units_, nfs_scs);
  append_units(local_validation_units_, local_scs);
  if (!generate_csi_validation_units(csi_scs)) return false;
  check_cloning_support();
  check_snapshot_support();
  return true;
}

bool Storage_Class_Capability_Config::generate_csi_validation_units(const Storage_Class_Map& storage_classes) {
  Storage_Class_Set system_classes;
  if (!k8s::get_system_storage_classes(system_classes)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get all storage classes on system\n")));
    return false;
  }
  for (const auto& sc : storage_classes)
    csi_validation_units_.emplace_back(sc.first, system_classes.contains(sc.first));
  return true;
}

void Storage_Class_Capability_Config::check_cloning_support() {
  // The clone is asked for straight after its claim; the cluster makes it once the claim is bound.
  for (Unit& unit : csi_validation_units_)
    if (unit.sc_exist_on_system_ && unit.create_temp_pvc(pvc_client_, client_)) unit.clone_temp_pvc(pvc_client_);
  check_temp_pvcs_status_and_report();
}

void Storage_Class_Capability_Config::check_temp_pvcs_status_and_report() {
  // Units behind one that is not bound are not asked in the same round.
  const auto bound_or_absent = [this](Unit& unit) {
    return !unit.sc_exist_on_system_ || unit.are_pvcs_and_clone_bound(pvc_client_);
  };
  QVX_RETRY(K8S_QVX_RETRY_TIMES, retry_time_out_ / 3, , std::ranges::all_of(csi_validation_units_, bound_or_absent),
            report_unbound_pvcs());
}

void Storage_Class_Capability_Config::report_unbound_pvcs() const {
  K8S_Events event(client_, ns_);
  for (const Unit& unit : csi_validation_units_) unit.report_unbound_pvcs(event);
}

void Storage_Class_Capability_Config::check_snapshot_support() {
  K8S_Volume_Snapshot snap_client(client_, ns_);
  for (Unit& unit : csi_validation_units_)
    if (unit.sc_exist_on_system_ && unit.pvc_.bound_) unit.create_snapshot_for_temp_pvc(snap_client, pvc_client_);
  check_temp_snapshots_status_and_report();
}

void Storage_Class_Capability_Config::check_temp_snapshots_status_and_report() {
  K8S_Volume_Snapshot snap_client(client_, ns_);
  const auto ready_or_not_begun = [&snap_client](Unit& unit) {
    return unit.pvc_snap_.name_.empty() || unit.are_snapshots_ready_to_use(snap_client);
  };
  QVX_RETRY(K8S_QVX_RETRY_TIMES, retry_time_out_ / 3, , std::ranges::all_of(csi_validation_units_, ready_or_not_begun),
            report_not_ready_snapshots());
}

void Storage_Class_Capability_Config::report_not_ready_snapshots() const {
  for (const Unit& unit : csi_validation_units_)
    if (!unit.pvc_snap_.name_.empty() && !unit.pvc_snap_.ready_to_use_)
      ACE_ERROR((LM_WARNING, ACE_TEXT("The snapshot '%s' associated with storage class '%s' was not created.\n"),
                 unit.pvc_snap_.name_.c_str(), unit.sc_name_.c_str()));
}

Object Storage_Class_Capability_Config::dump() const {
  return {{"csi", config_entries(csi_validation_units_, SC_TYPE_CSI)},
          {"nfs", config_entries(nfs_validation_units_, SC_TYPE_NFS)},
          {"local", config_entries(local_validation_units_, SC_TYPE_LOCAL)}};
}

bool Storage_Class_Capability_Config::update() {
  K8S_Config_Map config_map(client_, ns_);
  const Value config = dump();
  Value val;
  // Whatever fails here counts as absence.
  if (config_map.get(config_map_name, val, true))
    return config_map.patch(config_map_name, config, "application/strategic-merge-patch+json");
  return config_map.create(config_map_name, config, "v1");
}

void Storage_Class_Capability_Config::set_scs_capabilities(Storage_Class_Map& csi_scs, Storage_Class_Map& nfs_scs,
                                                           Storage_Class_Map& local_scs) const {
  for (const Unit& unit : csi_validation_units_) unit.set_scs_capabilities(csi_scs);
  for (const Unit& unit : nfs_validation_units_) unit.set_scs_capabilities(nfs_scs);
  for (const Unit& unit : local_validation_units_) unit.set_scs_capabilities(local_scs);
}
