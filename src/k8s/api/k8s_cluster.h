#pragma once

#include <map>
#include <string>

#include <sys/types.h>

#include "json_spirit/value_fwd.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_def.h"

/**
 * What is known of the cluster as a whole: the client of the process, the server's version, the group-versions that
 * differ between clusters, and where the auxiliary agents are.
 *
 * Life: init() before any resource object is made; who calls it calls close_instance() at the end, since nothing else
 * does. A second init() reads everything anew.
 * An object whose init() failed is usable as far as it got.
 *
 * Threads: instance() and init() on one thread, before others start. Afterwards reads need no lock, but for a
 * get_resource_gv() of a key that is not there yet; the client is used by one thread at a time.
 */
class K8S_Cluster {
 public:
  /// The one object, made at the first call. @return null if it can't be made.
  static K8S_Cluster* instance();
  static void close_instance();

  /**
   * Makes the client and asks the server for its version and that of its snapshot API, which may be absent, and the
   * environment for the auxiliary agents.
   *
   * @retval false  there is no client, the version can't be read, or set_aux_info() failed; the cause is in the log,
   *                but for a version that is empty.
   */
  bool init();

  /**
   * Appends the namespaces, in the server's order, without those whose name starts with "kube-".
   *
   * @param search_name  if not null and not empty, only names that hold this text, in whatever case.
   * @retval false  the cause is in the log; what was appended before a malformed item stays.
   */
  bool list_namespaces(K8S_Namespaces& namespaces, const std::string* search_name);

  /// Appends for each auxiliary pod that runs the name of its node, as a string.
  /// @retval false  the cause is in the log. It is a failure that there is no auxiliary pod, or one without a node.
  bool list_aux_nodes(json_spirit::Array& nodes);

  /// The number of auxiliary pods in whatever phase. 0 also on a failure, whose cause is in the log.
  int list_aux_nodes_num();

  /// The number of nodes without a taint of effect "NoSchedule". 0 also on a failure, whose cause is in the log.
  int get_no_taint_node_num();

  /// The group-version of a resource, such as "batch/v1" of "cronjobs". A key that is not there is added, with an empty
  /// text. An empty one of "volumesnapshots" means that the cluster offers no snapshots.
  std::string& get_resource_gv(const std::string& resource);

  const std::string& get_k8s_version() const { return version_; }
  const std::string& get_aux_key() const { return aux_key_; }
  const std::string& get_aux_value() const { return aux_value_; }
  /// 0 if it is not known.
  u_short get_aux_port() const { return aux_port_; }
  /// The namespace of the auxiliary agents.
  const std::string& get_current_ns() const { return current_ns_; }

  /// Fills in the group-version of cron jobs from the version, then those of snapshots. @return set_snapshot_version().
  bool set_resource_gv();

  /// Asks the server which version of the snapshot API it prefers.
  /// @retval false  there is none (logged), or the reply names none (not logged): then the map is untouched.
  bool set_snapshot_version();

  /// Reads AUX_KEY, AUX_VALUE, CURRENT_NAMESPACE and AUX_PORT. @retval false one of them is missing, which is logged;
  /// the others stand.
  bool set_aux_info();

 private:
  bool list_aux_pods(json_spirit::Value& val);

  K8S_Client_var client_;
  std::string version_;
  std::string aux_key_;
  std::string aux_value_;
  u_short aux_port_ = 0;
  std::string current_ns_;
  std::map<std::string, std::string> resource_gv_;
};

/// Does what K8S_Cluster::close_instance() does.
void K8S_Cluster_fini();
