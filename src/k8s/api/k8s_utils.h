#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_def.h"
#include "k8s/api/k8s_pvc.h"

/**
 * @file
 * Free functions of the Kubernetes library.
 *
 * Unless told otherwise they hold no state, may run on any thread, and make a K8S_Client of their own where they need
 * one. False is a failure; its cause is in the log.
 */
namespace k8s {

// Names of kinds. A kind without a name gives null; a text without a kind, null and empty among them, gives the kind's
// unknown enumerator. Texts are compared exactly.

const char* get_workload_name(K8S_Workload_Type type);
K8S_Workload_Type get_workload_type(const char* name);
const char* get_pvc_backup_type_name(K8S_PVC_Backup_Type type);
K8S_PVC_Backup_Type get_pvc_backup_type(const char* name);
const char* get_api_group_type_name(K8S_API_Group_Type type);
K8S_API_Group_Type get_api_group_type(const char* name);
const char* get_check_status_name(Check_Status status);
Check_Status get_check_status_type(const char* name);

/// The name under which the paths of the API have the objects of @a kind: its plural in lower case. A text of at most
/// one character comes back as it is.
std::string kind_to_resource(std::string kind);

// Names and marks of what the system makes in a cluster.

/// @a len lower-case letters, each drawn by itself.
std::string generate_random_string(unsigned short len);
/// "<origin>-<product>" in lower case, of whatever length.
std::string generate_resource_name(const std::string& origin, const std::string& product);
/// The one label that every object bears which the system makes.
query_map_type label();
/// Finds the objects that bear label().
query_selectors selector();

/**
 * Inserts into @a obj the document of a pod without volumes. The caller fills in "metadata"/"namespace",
 * "spec"/"volumes" and the "volumeMounts" of the one container, whose image is the environment variable POD_IMAGE.
 *
 * @retval false  POD_IMAGE is not set, which one line at LM_ERROR tells; @a obj is untouched. An empty image goes into
 *                the document.
 */
bool set_template_pod(json_spirit::Object& obj);

/**
 * Adds the names of all storage classes of the cluster to @a result, through a client of its own.
 *
 * @retval false  the cause is in the log. What was added before a class without a name stays.
 */
bool get_system_storage_classes(Storage_Class_Set& result);

// Questions to a node.

/**
 * Calls the auxiliary agent on the node @a node_name by JSON-RPC, once, at the address of its pod. K8S_Cluster knows
 * where the agents are. With several agents on the node the first one listed is called, whatever its phase.
 *
 * @param result                  the member "result" of the answer; untouched on failure. An error answer has none.
 * @param response_required_type  what the result must be: obj_type or str_type. Nothing is converted.
 */
bool node_rpc_request(const std::string& node_name, const std::string& method, const json_spirit::Object& params,
                      json_spirit::Value& result, json_spirit::Value_type response_required_type);

/// The node of the first running auxiliary agent that the server lists. @retval false @a node_name is untouched.
bool get_ramdom_online_aux_agent(std::string& node_name);

// Where a volume's data lies, and how large it is.

/// The first object in @a vols with this "name"; null if there is none, which is not logged.
const json_spirit::Object* find_volume_by_name(const json_spirit::Array& vols, const std::string& name);

/// Whether a pod's volume is a claim, or lies on NFS directly, which counts as one.
bool is_pvc_present(const json_spirit::Object& vol);

/// The API path of an object that lies in a namespace, or of a namespace: "/api/v1/namespaces/n/pods/p".
bool build_self_link(const json_spirit::Value& resource, std::string& self_link);

/**
 * Where the claim @a pvc_name is mounted inside the pod.
 *
 * @retval false  @a path is untouched. A malformed part that the search comes upon ends it, a container without mounts
 *                among them. A claim that no container mounts is not logged.
 */
bool get_pvc_mount_path(const json_spirit::Value& pod, const std::string& pvc_name, std::string& path);

/**
 * The apparent size in bytes of the data of the claim @a name: asked inside the pod first, then on the node.
 *
 * @param resource   a pod that mounts the claim, as the API returns it, with @a pod_uid, running on @a node_name.
 * @param size       0 may be the truth only if the node says so. On failure it may hold what the pod told.
 */
bool get_pvc_size(K8S_PVC& pvc_client, const json_spirit::Value& resource, const std::string& node_name,
                  const std::string& pod_uid, const std::string& name, std::int64_t& size);

/**
 * Removes what the agent made in the namespace @a ns, which bears label(), and its directory on this node: pods, then
 * claims, snapshots, binds, files. The wait for a pod or claim that does not go is that of K8S_Resource::delete_().
 *
 * Must not race with a job on this node, whose directory it removes.
 *
 * @retval false  a pod or claim could not be listed or deleted; what comes after it was not tried.
 */
bool clean_env(const std::string& ns);

// What a backup selection means.

/// Whether the workload @a wk of the namespace @a ns has an owner that stands for it: one that can be read and whose
/// selector names no label key that @a wk lacks. The values of labels don't count.
bool should_skip_workload(K8S_Client_var client, const std::string& ns, const json_spirit::Value& wk);

/**
 * Appends to @a result the entries of a selection, objects with "type", "name" and "namespace", without the workloads
 * whose whole namespace comes before them. All else stays, in order.
 *
 * @retval false  an entry lacks a member; those before it have been appended.
 */
bool deduplicate_backup_entries(const json_spirit::Array& entries, std::vector<Backup_Resource>& result);

/// The pods of a namespace, in place of what @a pods held; a namespace without pods leaves it as it was.
bool list_pods_in_ns(json_spirit::Array& pods, const std::string& ns);

// Adding to a set the storage classes in use. What was added before a failure stays.

/// Of the claims that the pods of a namespace mount. Claims without a pod are not seen.
bool get_scs_from_ns(const std::string& ns, Storage_Class_Set& sc_set);
/// Of the claims that the pods of a workload mount. @a wk is no namespace.
bool extract_scs_from_workload(const Backup_Resource& wk, Storage_Class_Set& sc_set);
/// @param type  a text of workload_type_name_table.
bool extract_scs_from_workload(const std::string& ns, const std::string& type, const std::string& workload_name,
                               Storage_Class_Set& sc_set);
/// @retval false  a pod has no volumes, or a claim no name. A claim that can't be read is only missing in the set.
bool extract_scs_from_pods(const std::string& ns, const json_spirit::Array& pods, Storage_Class_Set& sc_set);
/// Of one claim.
bool get_sc_from_pvc(const std::string& ns, const std::string& pvc, Storage_Class_Set& sc_set);

/// Whether an entry of a selection still exists; @a ns does not count for a namespace. False also if the cluster can't
/// be asked.
bool is_entry_present(const std::string& name, const std::string& ns, const std::string& type);

// Binds of a job.

/**
 * Binds the directory @a src with all that is mounted below it at @a target, which is made with its parents (mode 0750)
 * where it is missing, and makes the bound tree read-only: the volume itself and every mount below it. The tree is cut
 * off from its source: mounts and unmounts on one side do not reach the other.
 *
 * Needs the right to mount. Threads: must not race with another job's binds.
 *
 * @retval false  one line at LM_ERROR tells what failed. A bind whose protection failed stays in place, so that the
 *                caller's umounts() takes it down; it may be writable until then.
 */
[[nodiscard]] bool mount_bind(const std::string& src, const std::string& target);

/**
 * Detaches whatever is mounted at the direct children of the directory @a path; deeper mount points of their own are
 * not looked for. A child that can't be unmounted gets a line at LM_WARNING, and the walk goes on.
 *
 * @retval true   @a path is a directory, whatever became of its children.
 * @retval false  @a path is no directory; nothing is logged.
 */
bool umounts(const std::string& path);

}  // namespace k8s
