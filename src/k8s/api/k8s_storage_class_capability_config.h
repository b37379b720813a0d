#pragma once

#include <string>
#include <vector>

#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_def.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_volume_snapshot.h"

/**
 * @file
 * The experiment that finds out which storage classes can be cloned and snapshotted: what the cluster really does
 * within the time allowed, not what a driver says of itself. doc/capability.md tells it as a whole.
 */

/// Adds flags. Only the low 16 bits of the result are kept.
inline Capability_Flag& operator|=(Capability_Flag& flags, Capability_Flag more) {
  return flags = static_cast<Capability_Flag>((static_cast<unsigned>(flags) | static_cast<unsigned>(more)) & 0xFFFF);
}

/// Whether the two have a flag in common, among the low 16 bits.
inline bool operator&(Capability_Flag flags, Capability_Flag some) {
  return (static_cast<unsigned>(flags) & static_cast<unsigned>(some) & 0xFFFF) != 0;
}

/// A temporary object of the experiment.
struct Resource_Base {
  std::string name_;      ///< empty: no attempt to make it was begun
  bool deleted_ = false;  ///< it is known to be gone
};

struct PVC_Resource_Status : Resource_Base {
  bool bound_ = false;  ///< it was seen bound
};

struct Snapshot_Resource_Status : Resource_Base {
  bool ready_to_use_ = false;  ///< it was seen ready
};

/// Deletes what @a rs names through @a client, unless it has no name or is gone already, and notes whether it is gone.
/// @return whether it is.
bool delete_resource(Resource_Base& rs, K8S_Resource& client);

/**
 * The experiment for one storage class: the names of its temporary objects, how far each has got, and the verdict.
 *
 * A class that is not in the cluster has a unit too, which keeps its empty names. No operation waits for long: one that
 * polls looks twice at most, about a second apart. Failures are told by the results and the log; nothing is thrown.
 *
 * Threads: one at a time.
 */
class Storage_Class_Capability_Validation_Unit {
 public:
  /// @param exist  whether the class is in the cluster. If so, it is read at once, by a client of its own.
  Storage_Class_Capability_Validation_Unit(const std::string& sc_name, bool exist);

  /// Makes the temporary claim, and before it a copy of the class that binds at once, where the class itself waits for
  /// a consumer.
  /// @retval false  the cause is in the log. The name of a claim that was tried stays, so that clean() looks for it.
  bool create_temp_pvc(K8S_PVC& pvc_client, K8S_Client_var& client);

  /// Asks for a clone of the temporary claim. Whether there is one shows when it is waited for.
  void clone_temp_pvc(K8S_PVC& pvc_client);

  /// Asks for a snapshot of the temporary claim. Whether there is one shows when it is waited for.
  void create_snapshot_for_temp_pvc(K8S_Volume_Snapshot& snap_client, K8S_PVC& pvc_client);

  /// Whether the claim and its clone have been seen bound. The clone is looked at once the claim is bound; what was
  /// bound is not asked about again.
  bool are_pvcs_and_clone_bound(K8S_PVC& pvc_client);

  /// Whether the snapshot has been seen ready. What was ready is not asked about again.
  bool are_snapshots_ready_to_use(K8S_Volume_Snapshot& snap_client);

  /// Deletes claim, clone, snapshot and then the temporary class, as far as they were begun and are not known to be
  /// gone.
  /// @retval true  none of them is left.
  bool clean(K8S_PVC& pvc_client, K8S_Volume_Snapshot& snap_client, K8S_Storage_Class& sc_client);

  /// Tells at LM_WARNING that the claim, or else its clone, is not bound, with its events at LM_ERROR before. Silent
  /// for a class that is not in the cluster.
  void report_unbound_pvcs(K8S_Events& event) const;

  /// Writes the verdict into @a scs. The clone flag rests on the claim having been bound, not on its clone.
  void set_scs_capabilities(Storage_Class_Map& scs) const;

  /// Adds the verdict for the config map to @a config: {"clone": bool, "snapshot": bool} under the name of the class,
  /// unless that is there. A @a type that is not SC_TYPE_CSI takes no part in the experiment: both are true.
  void generate_config_entry(json_spirit::Object& config, Storage_Class_Type type) const;

  std::string sc_name_;
  Resource_Base temp_sc_;              ///< the copy of the class
  bool sc_exist_on_system_;            ///< else no experiment is possible
  bool need_immediate_mode_temp_sc_;   ///< the class waits for a consumer, so a copy stands in
  PVC_Resource_Status pvc_;            ///< the temporary claim
  PVC_Resource_Status pvc_clone_;      ///< its clone
  Snapshot_Resource_Status pvc_snap_;  ///< its snapshot

 private:
  bool is_need_immediate_mode_temp_sc(const std::string& sc);
};

typedef std::vector<Storage_Class_Capability_Validation_Unit> Validation_Units;

/**
 * One run of the experiment over all classes. Construct, init(), if true update(), if true set_scs_capabilities(),
 * destroy. Only classes of type csi take part; the others are marked able in the config map.
 *
 * The time budget is split by three: the waits for the claims, for the snapshots and for the clean-up may each sleep a
 * third of it (integer division) and up to a minute beyond. A third of -1 is no bound, nor is anything below.
 *
 * Ownership: shares the client. Threads: one at a time; it sleeps on the caller's thread. A kolt::Clock may end init()
 * and update() by an exception from its sleep(), which goes to the caller and leaves the object fit to be destroyed;
 * not so the destructor.
 */
class Storage_Class_Capability_Config {
 public:
  /// @param ns              where the temporary objects are made, and the config map lies.
  /// @param retry_time_out  the budget, in seconds.
  Storage_Class_Capability_Config(K8S_Client_var& client, const std::string& ns, int retry_time_out);

  /// Removes all temporary objects, with a wait of its own. What is left then has to be removed by hand: a line at
  /// LM_WARNING tells so, also when a later attempt removed what the first one could not.
  ~Storage_Class_Capability_Config();

  Storage_Class_Capability_Config(const Storage_Class_Capability_Config&) = delete;
  Storage_Class_Capability_Config& operator=(const Storage_Class_Capability_Config&) = delete;

  /// Makes the experiment. Called once.
  /// @retval false  the classes of the cluster can't be listed, which is logged. The outcome of the experiment has no
  ///                influence.
  bool init(const Storage_Class_Map& csi_scs, const Storage_Class_Map& nfs_scs, const Storage_Class_Map& local_scs);

  /// Writes the verdicts into the config map "sc-capability-config".
  bool update();

  /// Writes the verdicts into the maps. Those of the two last are CAPABILITY_NONE.
  void set_scs_capabilities(Storage_Class_Map& csi_scs, Storage_Class_Map& nfs_scs, Storage_Class_Map& local_scs) const;

  /// How far the classes of type csi are, in the order in which they are looked at; for a kolt::Clock that shows it
  /// while the run waits, which is also in the destructor.
  const Validation_Units& csi_units() const { return csi_validation_units_; }

 private:
  json_spirit::Object dump() const;
  bool generate_csi_validation_units(const Storage_Class_Map& storage_classes);
  void check_cloning_support();
  void check_snapshot_support();
  void check_temp_pvcs_status_and_report();
  void check_temp_snapshots_status_and_report();
  void report_unbound_pvcs() const;
  void report_not_ready_snapshots() const;

  K8S_Client_var client_;
  K8S_PVC pvc_client_;
  std::string ns_;
  int retry_time_out_;
  Validation_Units csi_validation_units_;
  Validation_Units nfs_validation_units_;
  Validation_Units local_validation_units_;
};
