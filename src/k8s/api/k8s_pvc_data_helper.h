#pragma once

#include <atomic>
#include <string>

#include "k8s/api/k8s_def.h"

/**
 * What is known of each storage class: its type, which the operator tells in the file
 * "/opt/storage_class/config.json", and whether its claims can be cloned and snapshotted, which the experiment of
 * Storage_Class_Capability_Config finds out. doc/capability.md describes both documents.
 *
 * Until the experiment has run once, every class passes the checks. After a failed init() the maps hold what they held
 * at the point of failure.
 *
 * Threads: get_status() and get_status_name() may be called by others while init() runs; nothing else may. instance()
 * is first called on one thread.
 */
class Storage_Class_Config {
 public:
  typedef Key2_Value_T<Storage_Class_Type> Storage_Class_Type_Name;

  static constexpr Storage_Class_Type_Name sc_type_name_table[] = {
      make_key_value("local", SC_TYPE_LOCAL),
      make_key_value("csi", SC_TYPE_CSI),
      make_key_value("nfs", SC_TYPE_NFS),
      {nullptr, 0, SC_TYPE_UNKNOWN},
  };

  /// The one object, made at the first call. @return null if it can't be made.
  static Storage_Class_Config* instance();
  static void close_instance();

  /// @return null for SC_TYPE_UNKNOWN and a number that is no type.
  static const char* get_sc_type_name(Storage_Class_Type type);
  /// @return SC_TYPE_UNKNOWN for a text that is no type's, null and empty among them.
  static Storage_Class_Type get_sc_type(const char* name);

  /**
   * Loads the file and, if asked, makes the experiment, publishes its verdicts in a config map of the namespace
   * CURRENT_NAMESPACE and removes what it made. May be called again; K8S_Cluster::init() comes before.
   *
   * @param retry_time_out  what the experiment may sleep in all, in seconds; see Storage_Class_Capability_Config.
   *                        K8S_UPDATE_CONFIG_RETRY_TIMEOUT is meant for it.
   * @retval false  the cause is in the log, and the status is ERROR.
   */
  bool init(bool validate_sc_capability, int retry_time_out);

  /// START before the first init().
  Check_Status get_status() const { return status_; }
  std::string get_status_name() const;

  /// A class of several types is csi before local before nfs.
  Storage_Class_Type sc_to_type(const std::string& sc) const;
  /// Once the experiment has run: whether @a sc is listed under "csi" and was found able.
  bool check_clone(const std::string& sc) const;
  bool check_snapshot(const std::string& sc) const;
  /// Whether the experiment has ever run to its end.
  bool is_sc_validated() const { return sc_validated_; }

 private:
  bool init_i();
  bool update_sc_capability_config(int retry_time_out);
  Storage_Class_Map* map_of(Storage_Class_Type type);
  bool check(const std::string& sc, Capability_Flag flag) const;

  bool sc_validated_ = false;
  Storage_Class_Map csi_scs_;
  Storage_Class_Map local_scs_;
  Storage_Class_Map nfs_scs_;
  std::atomic<Check_Status> status_{START};
};

/// Does what Storage_Class_Config::close_instance() does.
void Storage_Class_Config_fini();

/// Replaces the glob pattern @a path by the first path that matches it, or by the empty string where none does.
/// @return whether there is one.
bool glob_path(std::string& path);
