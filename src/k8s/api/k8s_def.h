#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kolt/key_value.h"

/**
 * @file
 * The vocabulary of the Kubernetes library: its closed sets of kinds with their texts, the small records that pass
 * between units, and the bounds of its waits.
 */

/// 0 is no member.
enum K8S_Workload_Type : std::int32_t {
  CRONJOB_WORKLOAD = 1,
  DEPLOYMENT_WORKLOAD,
  DAEMONSET_WORKLOAD,
  JOB_WORKLOAD,
  POD_WORKLOAD,
  REPLICASET_WORKLOAD,
  STATEFULSET_WORKLOAD,
  UNKNOWN_WORKLOAD
};

/// How the copy of a claim is made. 0 is no member.
enum K8S_PVC_Backup_Type : std::int32_t { CLONE = 1, SNAPSHOT, SNAPSHOT_BACKUP, AUTO, UNKNOWN_TYPE };

/// 0 is no member.
enum K8S_API_Group_Type : std::int32_t { SNAPSHOT_STORAGE_K8S_IO = 1, UNKNOWN_GROUP };

/// State of the check of what the storage classes can do. 0 is no member.
enum Check_Status : std::int32_t { START = 1, RUNNING, COMPLETED, ERROR, UNKNOWN };

enum Storage_Class_Type : std::int32_t { SC_TYPE_UNKNOWN = -1, SC_TYPE_LOCAL, SC_TYPE_CSI, SC_TYPE_NFS };

/// A bit set.
enum Capability_Flag : std::int32_t {
  CAPABILITY_NONE = 0,
  CAPABILITY_CLONE = 1,
  CAPABILITY_SNAP = 2,
  CAPABILITY_ALL = CAPABILITY_CLONE | CAPABILITY_SNAP
};

/// Bounds of the waits, in seconds but for the first.
enum : std::int32_t {
  K8S_QVX_RETRY_TIMES = 100,              ///< rounds of a wait
  K8S_QVX_RETRY_TIMEOUT = 600,            ///< what a wait may sleep in all
  K8S_TOKEN_EXPIRED_INTERVAL = 60,        ///< how long a session keeps the token that it has read
  K8S_UPDATE_CONFIG_RETRY_TIMEOUT = 180,  ///< what the check of the storage classes may take, for its callers
};

typedef std::map<std::string, std::string> query_map_type;
typedef std::map<std::string, std::string> path_transform_rules;

/// One query parameter of a list request.
struct Query_Selector {
  std::string type;      ///< name of the parameter, such as "labelSelector"
  query_map_type value;  ///< terms of the selector
};
typedef std::vector<Query_Selector> query_selectors;

/// One entry of a backup selection.
struct Backup_Resource {
  std::string type;  ///< a text of k8s::workload_type_name_table, or "namespace"
  std::string ns;
  std::string name;
};

struct K8S_Namespace_Info {
  std::string active;  ///< the phase
  std::string name;
  std::string uid;
};
typedef std::vector<K8S_Namespace_Info> K8S_Namespaces;

/// Names of storage classes.
typedef std::unordered_set<std::string> Storage_Class_Set;
/// What each storage class can do, by its name.
typedef std::unordered_map<std::string, Capability_Flag> Storage_Class_Map;

namespace k8s {

typedef Key2_Value_T<K8S_Workload_Type> Workload_Type_Name;
typedef Key2_Value_T<K8S_PVC_Backup_Type> PVC_Backup_Type_Name;
typedef Key2_Value_T<K8S_API_Group_Type> API_Group_Type_Name;
typedef Key2_Value_T<Check_Status> Check_Status_Name;

/// Resource names as the paths of the API have them, not the kinds of the objects.
inline constexpr Workload_Type_Name workload_type_name_table[] = {
    make_key_value("cronjobs", CRONJOB_WORKLOAD),
    make_key_value("deployments", DEPLOYMENT_WORKLOAD),
    make_key_value("daemonsets", DAEMONSET_WORKLOAD),
    make_key_value("jobs", JOB_WORKLOAD),
    make_key_value("pods", POD_WORKLOAD),
    make_key_value("replicasets", REPLICASET_WORKLOAD),
    make_key_value("statefulsets", STATEFULSET_WORKLOAD),
    {nullptr, 0, UNKNOWN_WORKLOAD},
};

inline constexpr PVC_Backup_Type_Name pvc_backup_type_name_table[] = {
    make_key_value("clone", CLONE),
    make_key_value("snapshot", SNAPSHOT),
    make_key_value("snapshot_backup", SNAPSHOT_BACKUP),
    make_key_value("auto", AUTO),
    {nullptr, 0, UNKNOWN_TYPE},
};

inline constexpr API_Group_Type_Name api_group_type_name_table[] = {
    make_key_value("snapshot.storage.k8s.io", SNAPSHOT_STORAGE_K8S_IO),
    {nullptr, 0, UNKNOWN_GROUP},
};

inline constexpr Check_Status_Name check_status_name_table[] = {
    make_key_value("start", START),
    make_key_value("running", RUNNING),
    make_key_value("completed", COMPLETED),
    make_key_value("error", ERROR),
    {nullptr, 0, UNKNOWN},
};

}  // namespace k8s
