// What the scheduler and the kubelets do with pods.
#include <algorithm>

#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

Object_Id pod_id(const Value& pod) {
  return {"", "pods", namespace_of(pod), name_of(pod)};
}

bool is_usable(const Value& node, const Value& pod) {
  bool closed = false;
  const Object *wanted = nullptr, *labels = nullptr;
  pextract(node)("/spec/unschedulable", closed)("/metadata/labels", labels);
  pextract(pod)("/spec/nodeSelector", wanted);
  if (closed || is_terminating(node)) return false;
  if (wanted == nullptr) return true;
  return labels != nullptr && std::all_of(wanted->begin(), wanted->end(), [&](const auto& label) {
           const Value* value = json_spirit::object_get_value(*labels, label.first);
           return value != nullptr && *value == label.second;
         });
}

/// The usable node with the fewest pods; empty when there is none.
std::string choose_node(Control_Plane& plane, const Value& pod) {
  std::map<std::string, size_t> load;
  for (const Document_var& node : plane.cluster.list("", "nodes"))
    if (is_usable(*node, pod)) load[name_of(*node)] = 0;
  for (const Document_var& other : plane.pods()) {
    const auto found = load.find(text_at(*other, "/spec/nodeName"));
    if (found != load.end()) ++found->second;
  }
  const auto least = std::min_element(load.begin(), load.end(), [](auto& a, auto& b) { return a.second < b.second; });
  return least == load.end() ? "" : least->first;
}

/// Why the pod's claims don't let it start; empty when they do.
std::string claim_problem(Control_Plane& plane, const Value& pod) {
  for (const std::string& name : claims_of(pod)) {
    const Document_var claim = plane.cluster.get({"", "persistentvolumeclaims", namespace_of(pod), name});
    if (!claim) return "persistentvolumeclaim \"" + name + "\" not found";
    if (is_terminating(*claim)) return "persistentvolumeclaim \"" + name + "\" is being deleted";
    if (text_at(*claim, "/status/phase") != "Bound") return "pod has unbound immediate PersistentVolumeClaims";
  }
  return "";
}

void set_unschedulable(Control_Plane& plane, const Value& pod, const std::string& why) {
  const std::string message =
      "0/" + std::to_string(plane.cluster.list("", "nodes").size()) + " nodes are available: " + why + ".";
  plane.event(pod, "Warning", "FailedScheduling", message, "default-scheduler");
  if (text_at(pod, "/status/conditions/0/message") == message) return;
  plane.cluster.update(pod_id(pod), [&](Object& object) {
    Object_Maker condition;
    condition("type", "PodScheduled")("status", "False")("reason", "Unschedulable")("message", message);
    condition("lastProbeTime", Value())("lastTransitionTime", now_text());
    object["status"].to_object()["conditions"] = Array{condition};
    return true;
  });
}

Array true_conditions(const std::string& now) {
  Array all;
  for (const char* type : {"PodReadyToStartContainers", "Initialized", "Ready", "ContainersReady", "PodScheduled"})
    all << Object_Maker()("type", type)("status", "True")("lastProbeTime", Value())("lastTransitionTime", now);
  return all;
}

Array running_containers(const Value& pod, const std::string& now) {
  const Array* containers = nullptr;
  pextract(pod)("/spec/containers", containers);
  Array all;
  for (size_t i = 0; containers != nullptr && i < containers->size(); ++i) {
    const std::string name = name_of(pod) + "-" + std::to_string(i);
    Object_Maker status;
    status("name", text_at((*containers)[i], "/name"))("image", text_at((*containers)[i], "/image"));
    status("imageID", "sha256:" + uid_of(pod))("containerID", "containerd://" + uid_of(pod) + "-" + std::to_string(i));
    status("ready", true)("started", true)("restartCount", 0)("lastState", Object());
    status("state", Object_Maker()("running", Object_Maker()("startedAt", now)));
    all << status;
  }
  return all;
}

/// An address of 10.244.0.0/16 that follows from the pod's uid.
std::string address_of(const Value& pod) {
  const size_t number = std::hash<std::string>()(uid_of(pod));
  return "10.244." + std::to_string(number % 256) + "." + std::to_string(number / 256 % 254 + 1);
}

void start(Control_Plane& plane, const Value& pod, const Value& node) {
  const std::string now = now_text(), address = address_of(pod), host = text_at(node, "/status/addresses/0/address");
  plane.cluster.update(pod_id(pod), [&](Object& object) {
    json_spirit::insert(object["status"].to_object())("phase", "Running")("conditions", true_conditions(now))(
        "hostIP", host)("hostIPs", Array{Object_Maker()("ip", host)})("podIP", address)(
        "podIPs", Array{Object_Maker()("ip", address)})("startTime", now)("containerStatuses",
                                                                          running_containers(pod, now));
    return true;
  });
  plane.event(pod, "Normal", "Started", "Container started", "kubelet");
}

void run(Control_Plane& plane, const Value& pod) {
  const std::string bound = text_at(pod, "/spec/nodeName");
  const std::string name = bound.empty() ? choose_node(plane, pod) : bound;
  const Document_var node = plane.cluster.get({"", "nodes", "", name});
  std::string problem = claim_problem(plane, pod);
  if (bound.empty() && name.empty()) problem = "no node is usable";
  if (!problem.empty()) return set_unschedulable(plane, pod, problem);
  if (!node) return;
  if (bound.empty()) {
    plane.cluster.update(pod_id(pod), [&](Object& object) {
      object["spec"].to_object()["nodeName"] = name;
      return true;
    });
    plane.event(pod, "Normal", "Scheduled",
                "Successfully assigned " + namespace_of(pod) + "/" + name_of(pod) + " to " + name, "default-scheduler");
  }
  if (plane.due(pod, "start", plane.behaviour.start_delay)) start(plane, pod, *node);
}

}  // namespace

void control_pods(Control_Plane& plane) {
  for (const Document_var& pod : plane.pods()) {
    const std::string phase = text_at(*pod, "/status/phase");
    if (is_terminating(*pod)) {
      const bool stuck = plane.behaviour.stuck_deletions.count(name_of(*pod)) > 0;
      if (!stuck && plane.due(*pod, "stop", plane.behaviour.stop_delay)) plane.cluster.remove(pod_id(*pod));
    } else if (phase.empty() || phase == "Pending") {
      run(plane, *pod);
    }
  }
}

}  // namespace kube_sim
