#include "ctl/selection_commands.h"

#include <unistd.h>

#include <cstdlib>
#include <set>
#include <vector>

#include "ctl/cluster_view.h"
#include "ctl/print.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_helper.h"
#include "k8s/api/k8s_configmap.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char config_map_name[] = "sc-capability-config";
constexpr char namespace_type[] = "namespace";

/// Where verdicts are published; empty where nobody tells.
std::string namespace_of_verdicts(const Cluster_Options& options) {
  const char* const own = std::getenv("CURRENT_NAMESPACE");
  return options.ns.empty() && own != nullptr ? own : options.ns;
}

/// The document that the last experiment published; null where there is none.
Value published_verdicts(Cluster_View& view, const std::string& ns) {
  Value map, document;
  if (!ns.empty() && K8S_Config_Map(view.client(), ns).get(config_map_name, map, false))
    static_cast<void>(json_spirit::loads_json(text_at(map, "/data/config.json").c_str(), document));
  return document;
}

struct Verdict {
  std::string type;
  std::string clone;
  std::string snapshot;
};

std::string yes_or_no(const Object& entry, const char* what) {
  bool able = false;
  return json_spirit::object_get(entry, what, able) ? (able ? "yes" : "no") : "";
}

Verdict verdict_on(const Value& document, const std::string& name) {
  if (document.type() != json_spirit::obj_type) return {};
  for (const char* const type : {"csi", "local", "nfs"}) {
    const Object* const classes = json_spirit::object_get_object(document.get_obj(), type);
    const Object* const entry = classes ? json_spirit::object_get_object(*classes, name) : nullptr;
    if (entry) return {type, yes_or_no(*entry, "clone"), yes_or_no(*entry, "snapshot")};
  }
  return {};
}

Array entries_of(const std::string& file) {
  Value entries;
  if (::access(file.c_str(), R_OK) != 0) throw Failure(exit_usage, "'" + file + "' cannot be read.");
  if (!json_spirit::load_json(file.c_str(), entries, json_spirit::LOAD_STRICT) ||
      entries.type() != json_spirit::array_type)
    throw Failure(exit_usage, "'" + file + "' holds no JSON array.");
  return std::move(entries.get_array());
}

void add_classes(const Backup_Resource& entry, Storage_Class_Set& classes) {
  // What cannot be read shows as missing, or has no claims.
  static_cast<void>(entry.type == namespace_type ? k8s::get_scs_from_ns(entry.ns, classes)
                                                 : k8s::extract_scs_from_workload(entry, classes));
}

}  // namespace

Exit_Code sc_show(const Options& options, std::ostream& out, std::ostream& err) {
  Cluster_View view(options.cluster);
  K8S_Storage_Class classes(view.client());
  const Array items = view.items_of(classes, "storage classes");
  const std::string ns = namespace_of_verdicts(options.cluster);
  const Value verdicts = published_verdicts(view, ns);
  Listing listing("storage_classes", {{"name", "NAME"},
                                      {"provisioner", "PROVISIONER"},
                                      {"binding", "BINDING"},
                                      {"type", "TYPE"},
                                      {"clone", "CLONE"},
                                      {"snapshot", "SNAPSHOT"}});
  for (const Value& item : items) {
    const std::string name = text_at(item, "/metadata/name");
    const Verdict verdict = verdict_on(verdicts, name);
    listing.add({name, text_at(item, "/provisioner"), text_at(item, "/volumeBindingMode"), verdict.type, verdict.clone,
                 verdict.snapshot});
  }
  if (ns.empty() && !options.json) err << "No verdicts are shown: -n tells the namespace that holds them." << std::endl;
  return listing.print(options.json, out);
}

Exit_Code entries_check(const Options& options, std::ostream& out, std::ostream&) {
  const Array entries = entries_of(options.cluster.file);
  std::vector<Backup_Resource> reduced;
  if (!k8s::deduplicate_backup_entries(entries, reduced))
    throw Failure(exit_usage, "An entry of '" + options.cluster.file + "' lacks its type, name or namespace.");
  Cluster_View view(options.cluster);
  Listing listing("entries", {{"namespace", "NAMESPACE"}, {"type", "TYPE"}, {"name", "NAME"}, {"present", "PRESENT"}});
  Storage_Class_Set classes;
  bool complete = true;
  for (const Backup_Resource& entry : reduced) {
    const bool present = k8s::is_entry_present(entry.name, entry.ns, entry.type);
    complete = complete && present;
    if (present) add_classes(entry, classes);
    listing.add({entry.ns, entry.type, entry.name, present});
  }
  const std::set<std::string> sorted(classes.begin(), classes.end());
  if (options.json) {
    Object document = listing.document();
    Array names;
    for (const std::string& name : sorted) names.emplace_back(name);
    document["left_out"] = static_cast<std::int64_t>(entries.size() - reduced.size());
    document["storage_classes"] = std::move(names);
    print_json(out, document);
  } else {
    listing.print(false, out);
    out << "Left out: " << entries.size() - reduced.size() << "\nStorage classes:";
    for (const std::string& name : sorted) out << ' ' << name;
    out << '\n';
  }
  return complete ? exit_ok : exit_job_failed;
}

}  // namespace ctl
