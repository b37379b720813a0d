#include "ctl/sc_check.h"

#include <cstdlib>
#include <map>

#include "ctl/cluster_view.h"
#include "ctl/experiment.h"
#include "ctl/print.h"
#include "ctl/storage_class_file.h"

namespace ctl {

namespace {

const char* note_on(const Storage_Class_Capability_Validation_Unit& unit) {
  if (!unit.sc_exist_on_system_) return "not in the cluster";
  if (!unit.pvc_.bound_) return "its claim was not seen bound in time";
  if (!unit.pvc_clone_.bound_) return "careful: the clone was not seen bound in time";
  if (!unit.pvc_snap_.ready_to_use_) return "its snapshot was not seen ready in time";
  return "";
}

void add_untried(Listing& listing, const Storage_Class_Map& classes, const char* type) {
  const std::map<std::string, Capability_Flag> sorted(classes.begin(), classes.end());
  for (const auto& entry : sorted) listing.add({entry.first, type, true, true, "not tried out"});
}

/// As they are published.
Listing verdicts_of(const Validation_Units& csi, const Storage_Classes& classes) {
  Listing listing(
      "verdicts",
      {{"name", "CLASS"}, {"type", "TYPE"}, {"clone", "CLONE"}, {"snapshot", "SNAPSHOT"}, {"note", "NOTE"}});
  for (const auto& unit : csi)
    listing.add({unit.sc_name_, "csi", unit.pvc_.bound_, unit.pvc_snap_.ready_to_use_, note_on(unit)});
  add_untried(listing, classes.local, "local");
  add_untried(listing, classes.nfs, "nfs");
  return listing;
}

std::string namespace_of_experiment(const Cluster_Options& options) {
  if (!options.ns.empty()) ::setenv("CURRENT_NAMESPACE", options.ns.c_str(), 1);
  const char* const ns = std::getenv("CURRENT_NAMESPACE");
  if (ns == nullptr || *ns == '\0')
    throw Failure(exit_usage, "-n must tell the namespace for the experiment's objects.");
  return ns;
}

Progress_View::Mode mode_of_view(const Options& options) {
  if (options.json) return Progress_View::silent;
  // The log would stand between a table and the next one in its place.
  return options.cluster.verbose ? Progress_View::lines : Progress_View::mode_for_stderr();
}

/// @return whether there is something.
bool tell_what_is_left(const std::vector<std::string>& left, const std::string& ns, std::ostream& err) {
  if (left.empty()) return false;
  err << "tessarinctl: Left behind in namespace " << ns << ':';
  for (const std::string& object : left) err << "\n  " << object;
  err << "\n'tessarinctl clean " << ns
      << " --yes' removes claims and snapshots, 'kubectl delete storageclass' copies of classes." << std::endl;
  return true;
}

}  // namespace

Exit_Code sc_check(const Options& options, std::ostream& out, std::ostream& err) {
  const Cluster_Options& cluster = options.cluster;
  const std::string ns = namespace_of_experiment(cluster);
  const Storage_Classes classes = read_storage_classes(cluster.file.empty() ? storage_class_file : cluster.file, err);
  Cluster_View view(cluster);
  const Experiment experiment =
      make_experiment(view.client(), ns, classes, cluster.timeout, err, mode_of_view(options));
  const bool left = tell_what_is_left(experiment.left, ns, err);
  if (experiment.interrupted && !experiment.published)
    throw Failure(exit_job_failed, left ? "Interrupted. Nothing was published."
                                        : "Interrupted. Nothing was published, and nothing is left behind.");
  if (!experiment.made)
    throw Failure(exit_refused, "The experiment could not be made: the classes of the cluster cannot be listed. " +
                                    std::string("--verbose tells why."));
  verdicts_of(experiment.csi, classes).print(options.json, out);
  out.flush();
  if (experiment.published) return left ? exit_job_failed : exit_ok;
  err << "tessarinctl: The verdicts could not be written into the config map 'sc-capability-config' of namespace " << ns
      << ". --verbose tells why." << std::endl;
  return exit_refused;
}

}  // namespace ctl
