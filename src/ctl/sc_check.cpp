#include "ctl/sc_check.h"

#include <cstdlib>
#include <sstream>

#include "ctl/cluster_view.h"
#include "ctl/selection_commands.h"
#include "ctl/table.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_pvc_data_helper.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "kolt/clock.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Value;

namespace {

Array items_of(K8S_Resource& resource) {
  Value list;
  Array* items = nullptr;
  if (resource.list(list, k8s::selector())) json_spirit::pextract(list)("/items", items);
  return items ? std::move(*items) : Array();
}

/// Looks at the temporary objects whenever the experiment waits, and prints a table when it has changed.
class Stage_View : public kolt::Clock {
 public:
  Stage_View(const K8S_Client_var& client, const std::string& ns, std::ostream& out)
      : claims_(client, ns), snapshots_(client, ns), out_(out), clock_(kolt::clock()) {
    previous_ = kolt::set_clock(this);
  }
  ~Stage_View() override { kolt::set_clock(previous_); }

  time_t now() override { return clock_.now(); }
  void sleep(std::chrono::milliseconds time) override {
    std::ostringstream text;
    table().print(text);
    if (text.str() != shown_) out_ << text.str() << std::endl;
    shown_ = text.str();
    clock_.sleep(time);
  }

 private:
  /// One row for each temporary claim.
  Table table() {
    const Array claims = items_of(claims_), snapshots = items_of(snapshots_);
    Table table({"CLASS", "CLAIM", "CLONE", "SNAPSHOT"});
    for (const Value& claim : claims) {
      if (!text_at(claim, "/spec/dataSource/name").empty()) continue;
      const std::string name = text_at(claim, "/metadata/name");
      std::string clone = "-", snapshot = "-";
      for (const Value& other : claims)
        if (text_at(other, "/spec/dataSource/name") == name) clone = text_at(other, "/status/phase");
      for (const Value& other : snapshots)
        if (text_at(other, "/spec/source/persistentVolumeClaimName") == name)
          snapshot = is_ready(other) ? "Ready" : "Pending";
      table.add({text_at(claim, "/spec/storageClassName"), text_at(claim, "/status/phase"), clone, snapshot});
    }
    return table;
  }
  static bool is_ready(const Value& snapshot) {
    bool ready = false;
    json_spirit::pextract(snapshot)("/status/readyToUse", ready);
    return ready;
  }

  K8S_PVC claims_;
  K8S_Volume_Snapshot snapshots_;
  std::ostream& out_;
  kolt::Clock& clock_;
  kolt::Clock* previous_;
  std::string shown_;
};

}  // namespace

Exit_Code sc_check(const Options& options, std::ostream& out, std::ostream& err) {
  if (!options.cluster.ns.empty()) ::setenv("CURRENT_NAMESPACE", options.cluster.ns.c_str(), 1);
  const char* const ns = std::getenv("CURRENT_NAMESPACE");
  if (ns == nullptr) throw Failure(exit_usage, "-n must tell the namespace for the experiment's objects.");
  Cluster_View view(options.cluster);
  std::ostringstream silent;
  {
    const Stage_View stages(view.client(), ns, options.json ? silent : err);
    if (!Storage_Class_Config::instance()->init(true, options.cluster.timeout))
      throw Failure(exit_refused, "The experiment could not be made. --verbose tells why.");
  }
  Storage_Class_Config::close_instance();
  return print_classes(options, view, out);
}

}  // namespace ctl
