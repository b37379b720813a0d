#pragma once

#include "k8s/api/k8s_def.h"
#include "k8s/api/k8s_workload.h"

class K8S_Workload_Factory {
 public:
  /// The workloads of a kind.
  /// @param ns  the namespace; null is an empty one, which serves for list_all().
  /// @return null, with one line at LM_ERROR, for a kind that is none.
  static K8S_Workload_ptr create(K8S_Client_var client, K8S_Workload_Type workload_type, const std::string* ns);
};

/**
 * Lists workloads as small objects with "name", "type", "uid", "namespace" and "has_children", which is false.
 *
 * Left out are workloads that an owner stands for (k8s::should_skip_workload()) and those of a namespace that starts
 * with "kube-", also if just that one is asked for. Each owner that is looked at costs a request.
 *
 * Arguments: @a ns null or empty: all namespaces. @a search_name, if not null and not empty: only names that hold this
 * text, in whatever case.
 *
 * False: the cause is in the log, and the array keeps what it got until then. Threads: those of the client.
 */
class K8S_Workload_Helper {
 public:
  explicit K8S_Workload_Helper(K8S_Client_var client);

  /// Replaces what @a arr held by the workloads of all seven kinds.
  bool list_workload_objects(json_spirit::Array& arr, const std::string* ns, const std::string* search_name);
  /// Replaces what @a arr held by those of one kind.
  bool get_workload_objects(K8S_Workload_Type workload_type, json_spirit::Array& arr, const std::string* ns,
                            const std::string* search_name);
  /// Adds those of one kind.
  bool append_workload_objects(K8S_Workload_Type workload_type, json_spirit::Array& arr, const std::string* ns,
                               const std::string* search_name);
  bool get_workload_objects_i(K8S_Workload_Type workload_type, json_spirit::Array& arr, const std::string* ns,
                              const std::string* search_name);

 private:
  void append_workload(json_spirit::Value& item, const std::string& type, json_spirit::Array& arr,
                       const std::string* search_name);

  K8S_Client_var client_;
};
