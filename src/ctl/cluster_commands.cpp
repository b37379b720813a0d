#include "ctl/cluster_commands.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "ctl/cluster_view.h"
#include "ctl/exec.h"
#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/sc_check.h"
#include "ctl/selection_commands.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_node.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "k8s/api/k8s_workload_factory.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char snapshot_resource[] = "volumesnapshots";

bool has_snapshots(const Cluster_View& view) {
  return !view.cluster().get_resource_gv(snapshot_resource).empty();
}

bool takes_new_pods(const Value& node) {
  const Array* taints = nullptr;
  json_spirit::pextract(node)("/spec/taints", taints);
  if (!taints) return true;
  for (const Value& taint : *taints)
    if (text_at(taint, "/effect") == "NoSchedule") return false;
  return true;
}

bool is_ready(const Value& node) {
  const Array* conditions = nullptr;
  json_spirit::pextract(node)("/status/conditions", conditions);
  if (!conditions) return false;
  for (const Value& condition : *conditions)
    if (text_at(condition, "/type") == "Ready") return text_at(condition, "/status") == "True";
  return false;
}

Exit_Code cluster_info(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  K8S_Node nodes(view.client());
  const Array items = view.items_of(nodes, "nodes");
  std::int64_t open_nodes = 0;
  for (const Value& node : items) open_nodes += takes_new_pods(node);
  const std::string snapshots = view.cluster().get_resource_gv(snapshot_resource);
  Object document;
  json_spirit::insert(document)("version", view.cluster().get_k8s_version())("snapshots", snapshots)(
      "nodes", static_cast<std::int64_t>(items.size()))("schedulable_nodes", open_nodes);
  if (view.knows_agents())
    json_spirit::insert(document)("agents", static_cast<std::int64_t>(view.cluster().list_aux_nodes_num()))(
        "agents_namespace", view.cluster().get_current_ns());
  if (options.json) {
    print_json(out, document);
    return exit_ok;
  }
  out << "Version    " << view.cluster().get_k8s_version() << "\nSnapshots  " << (snapshots.empty() ? "no" : snapshots)
      << "\nNodes      " << items.size() << ", " << open_nodes << " of them take pods\nAgents     ";
  if (view.knows_agents())
    out << view.cluster().list_aux_nodes_num() << ", in namespace " << view.cluster().get_current_ns() << '\n';
  else
    out << "unknown: AUX_KEY, AUX_VALUE or CURRENT_NAMESPACE is not set\n";
  return exit_ok;
}

Exit_Code cluster_namespaces(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  K8S_Namespaces namespaces;
  if (!view.cluster().list_namespaces(namespaces, &options.cluster.search))
    throw Failure(exit_refused, "The namespaces cannot be listed. --verbose tells why.");
  Listing listing("namespaces", {{"name", "NAME"}, {"status", "STATUS"}, {"uid", "UID"}});
  for (const K8S_Namespace_Info& info : namespaces) listing.add({info.name, info.active, info.uid});
  return listing.print(options.json, out);
}

Exit_Code cluster_workloads(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  Array workloads;
  if (!K8S_Workload_Helper(view.client())
           .list_workload_objects(workloads, &options.cluster.ns, &options.cluster.search))
    view.fail("The workloads cannot be listed");
  Listing listing("workloads", {{"namespace", "NAMESPACE"}, {"type", "TYPE"}, {"name", "NAME"}, {"uid", "UID"}});
  for (const Value& workload : workloads)
    listing.add({text_at(workload, "/namespace"), text_at(workload, "/type"), text_at(workload, "/name"),
                 text_at(workload, "/uid")});
  return listing.print(options.json, out);
}

Exit_Code cluster_nodes(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  K8S_Node nodes(view.client());
  Listing listing("nodes",
                  {{"name", "NAME"}, {"ready", "READY"}, {"schedulable", "TAKES PODS"}, {"address", "ADDRESS"}});
  for (const Value& node : view.items_of(nodes, "nodes")) {
    const std::string name = text_at(node, "/metadata/name");
    std::string address;
    static_cast<void>(nodes.get_node_addr(name, address));
    listing.add({name, is_ready(node), takes_new_pods(node), address});
  }
  return listing.print(options.json, out);
}

Exit_Code cluster_aux(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  if (!view.knows_agents())
    throw Failure(exit_usage, "AUX_KEY, AUX_VALUE and CURRENT_NAMESPACE must tell where the agents are.");
  Array nodes;
  if (!view.cluster().list_aux_nodes(nodes))
    throw Failure(exit_refused, "No auxiliary agent was found. --verbose tells why.");
  Listing listing("agents", {{"node", "NODE"}});
  for (const std::string& node : nodes | json_spirit::get_str) listing.add({node});
  return listing.print(options.json, out);
}

Exit_Code pvc_list(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  K8S_PVC claims(view.client(), namespace_or_default(options.cluster));
  Listing listing("claims", {{"name", "NAME"},
                             {"status", "STATUS"},
                             {"storage_class", "CLASS"},
                             {"capacity", "CAPACITY"},
                             {"volume", "VOLUME"}});
  for (const Value& claim : view.items_of(claims, "claims"))
    listing.add({text_at(claim, "/metadata/name"), text_at(claim, "/status/phase"),
                 text_at(claim, "/spec/storageClassName"), text_at(claim, "/status/capacity/storage"),
                 text_at(claim, "/spec/volumeName")});
  return listing.print(options.json, out);
}

bool mounts_claim(const Value& pod, const std::string& claim) {
  const Array* volumes = nullptr;
  json_spirit::pextract(pod)("/spec/volumes", volumes);
  if (!volumes) return false;
  for (const Value& volume : *volumes)
    if (text_at(volume, "/persistentVolumeClaim/claimName") == claim) return true;
  return false;
}

bool has_one_container(const Value& pod) {
  const Array* containers = nullptr;
  json_spirit::pextract(pod)("/spec/containers", containers);
  return containers && containers->size() == 1;
}

/// A running pod that mounts the claim, as the API would return it by itself. Of several, one in which there is no
/// doubt where to measure: in a pod of several containers only the agent on its node can.
Value pod_with_claim(Cluster_View& view, const std::string& ns, const std::string& claim) {
  K8S_Pod pods(view.client(), ns);
  std::string name;
  for (const Value& pod : view.items_of(pods, "pods")) {
    if (!mounts_claim(pod, claim) || text_at(pod, "/status/phase") != "Running") continue;
    const bool simple = has_one_container(pod);
    if (simple || name.empty()) name = text_at(pod, "/metadata/name");
    if (simple) break;
  }
  if (name.empty())
    throw Failure(exit_usage, "No running pod of namespace " + ns + " mounts the claim '" + claim + "'.");
  Value pod;
  if (!pods.get(name, pod, true)) view.fail("The pod '" + name + "' cannot be read");
  if (!has_one_container(pod) && !view.knows_agents())
    throw Failure(exit_usage, "The pod '" + name + "', which mounts the claim '" + claim +
                                  "', has several containers. Such a claim is measured by the agent on the pod's node: "
                                  "AUX_KEY, AUX_VALUE, AUX_PORT and CURRENT_NAMESPACE must tell where it is.");
  return pod;
}

Exit_Code pvc_size(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  const std::string &claim = options.cluster.name, ns = namespace_or_default(options.cluster);
  const Value pod = pod_with_claim(view, ns, claim);
  K8S_PVC claims(view.client(), ns);
  std::int64_t size = 0;
  if (!k8s::get_pvc_size(claims, pod, text_at(pod, "/spec/nodeName"), text_at(pod, "/metadata/uid"), claim, size))
    throw Failure(exit_refused, "The claim '" + claim + "' cannot be measured. --verbose tells why.");
  if (options.json)
    print_json(out, Object{{"name", claim}, {"size", size}, {"pod", text_at(pod, "/metadata/name")}});
  else
    out << human_size(static_cast<uint64_t>(size)) << '\n';
  return exit_ok;
}

std::string name_of_copy(const Cluster_Options& options) {
  return options.copy.empty() ? k8s::generate_resource_name(options.name, "tessarin") : options.copy;
}

Exit_Code tell_copy(const Options& options, const char* kind, const std::string& name, std::ostream& out) {
  if (options.json)
    print_json(out, Object{{"kind", kind}, {"namespace", namespace_or_default(options.cluster)}, {"name", name}});
  else
    out << kind << ' ' << name << '\n';
  return exit_ok;
}

Exit_Code pvc_clone(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  K8S_PVC claims(view.client(), namespace_or_default(options.cluster));
  const std::string name = name_of_copy(options.cluster);
  if (!claims.clone(options.cluster.name, name)) view.fail("The claim '" + options.cluster.name + "' cannot be cloned");
  if (options.cluster.wait && !claims.is_bound(name, true, K8S_QVX_RETRY_TIMES))
    throw Failure(exit_refused, "The claim '" + name + "' does not get bound.");
  return tell_copy(options, "claim", name, out);
}

Exit_Code pvc_snapshot(const Options& options, std::ostream& out, std::ostream&) {
  Cluster_View view(options.cluster);
  if (!has_snapshots(view)) throw Failure(exit_refused, "The cluster offers no snapshots.");
  K8S_PVC claims(view.client(), namespace_or_default(options.cluster));
  K8S_Volume_Snapshot snapshots(view.client(), namespace_or_default(options.cluster));
  const std::string name = name_of_copy(options.cluster);
  if (!snapshots.create_with_name(claims, options.cluster.name, name))
    view.fail("The claim '" + options.cluster.name + "' cannot be snapshotted");
  if (options.cluster.wait && !snapshots.is_ready_to_use(name, true, K8S_QVX_RETRY_TIMES))
    throw Failure(exit_refused, "The snapshot '" + name + "' does not get ready.");
  return tell_copy(options, "snapshot", name, out);
}

void add_marked(Cluster_View& view, K8S_Resource& resource, const char* kind, Listing& listing) {
  for (const Value& item : view.items_of(resource, std::string(kind) + "s", k8s::selector()))
    listing.add({kind, text_at(item, "/metadata/name")});
}

/// What bears the agent's label, in the order in which it is removed.
Listing marked_objects(Cluster_View& view, const std::string& ns) {
  Listing listing("objects", {{"kind", "KIND"}, {"name", "NAME"}});
  K8S_Pod pods(view.client(), ns);
  K8S_PVC claims(view.client(), ns);
  add_marked(view, pods, "pod", listing);
  add_marked(view, claims, "claim", listing);
  if (!has_snapshots(view)) return listing;
  K8S_Volume_Snapshot snapshots(view.client(), ns);
  add_marked(view, snapshots, "snapshot", listing);
  return listing;
}

Exit_Code clean(const Options& options, std::ostream& out, std::ostream&) {
  const std::string& ns = options.cluster.name;
  if (!options.cluster.dry_run && !options.cluster.yes)
    throw Failure(exit_usage, "Nothing was removed: --dry-run lists what bears the agent's label, --yes removes it.");
  Cluster_View view(options.cluster);
  const Listing listing = marked_objects(view, ns);
  if (!options.cluster.dry_run && !k8s::clean_env(ns))
    throw Failure(exit_refused, "Not all could be removed from namespace " + ns + ". --verbose tells why.");
  return listing.print(options.json, out);
}

}  // namespace

const std::map<std::string, Command>& cluster_commands() {
  static const std::map<std::string, Command> commands = {
      {"cluster info", cluster_info},
      {"cluster namespaces", cluster_namespaces},
      {"cluster workloads", cluster_workloads},
      {"cluster nodes", cluster_nodes},
      {"cluster aux", cluster_aux},
      {"pvc list", pvc_list},
      {"pvc size", pvc_size},
      {"pvc clone", pvc_clone},
      {"pvc snapshot", pvc_snapshot},
      {"clean", clean},
      {"exec", exec},
      {"sc check", sc_check},
      {"sc show", sc_show},
      {"entries check", entries_check},
  };
  return commands;
}

}  // namespace ctl
