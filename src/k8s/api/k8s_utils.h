#pragma once

#include <string>

#include "json_spirit/value_fwd.h"
#include "k8s/api/k8s_def.h"

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
