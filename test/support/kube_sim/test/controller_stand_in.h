#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/kube_sim/cluster.h"
#include "support/kube_sim/test/body_compare.h"
#include "support/kube_sim/test/recorded_exchange.h"

namespace kube_sim {

/**
 * Does in a replay what controllers, and people beside the recorded client, did while the exchanges were recorded.
 *
 * controllers.json names, for each group, the namespaces that were there at its start, and what was done before which
 * exchanges ("by" tells who did it), in one of two ways:
 * - "requests": these are sent;
 * - else the objects in the recorded answers to these exchanges (or to those named by "from") are made, changed or
 *   deleted as they stand there, so that such an exchange tests how objects are shown and selected, not how they came.
 */
class Controller_Stand_In {
 public:
  Controller_Stand_In(Cluster& cluster, const std::string& group, const std::vector<Recorded_Exchange>& exchanges);

  void work_before(const Recorded_Exchange& exchange, Renewed_Values& renewed);
  /// Exchanges named for this group that never came.
  std::vector<std::string> unused() const;

 private:
  void send(const json_spirit::Object& request);
  void adopt_answer(const Recorded_Exchange& exchange, Renewed_Values& renewed);
  void adopt(const json_spirit::Object& recorded, const Object_Id& place, Renewed_Values& renewed);
  void adopt_list(const json_spirit::Object& list, const Object_Id& place, const Request& request,
                  Renewed_Values& renewed);
  void destroy(const Object_Id& id);

  Cluster& cluster_;
  const std::vector<Recorded_Exchange>& exchanges_;
  std::map<std::string, json_spirit::Object> steps_;  // by the exchange that they come before
};

}  // namespace kube_sim
