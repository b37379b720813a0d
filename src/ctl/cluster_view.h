#pragma once

#include <string>

#include "ctl/cluster_options.h"
#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_resource.h"

namespace ctl {

/// The cluster, for the length of a command. One at a time in a process, before any thread starts.
class Cluster_View {
 public:
  /// @throws Failure  exit_usage: there is no cluster to be seen from here; exit_unreachable: its API server gives no
  /// answer, exit_refused: or not its version.
  explicit Cluster_View(const Cluster_Options& options);
  ~Cluster_View() { K8S_Cluster::close_instance(); }
  Cluster_View(const Cluster_View&) = delete;
  Cluster_View& operator=(const Cluster_View&) = delete;

  K8S_Cluster& cluster() const { return *K8S_Cluster::instance(); }
  const K8S_Client_var& client() const { return client_; }

  /// Whether the environment tells where the auxiliary agents are.
  bool knows_agents() const;

  /// The items of a list. @throws Failure.
  json_spirit::Array items_of(K8S_Resource& resource, const std::string& what, const query_selectors& queries = {});

  /// Ends the command with "<text>.", and the status of the server's last answer to client(), if it was an error.
  [[noreturn]] void fail(const std::string& text) const;

 private:
  K8S_Client_var client_;
};

/// The text at a path, empty where there is none.
std::string text_at(const json_spirit::Value& document, const char* path);

}  // namespace ctl
