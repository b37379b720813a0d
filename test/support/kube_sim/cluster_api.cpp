#include "support/kube_sim/cluster_api.h"

#include <algorithm>
#include <regex>

#include "json_spirit/extract.h"
#include "support/kube_sim/process_exec.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

Answer container_not_found(const std::string& name) {
  Answer answer;
  answer.status = 500;
  answer.content_type = "text/plain; charset=utf-8";
  answer.body = "container not found (\"" + name + "\")";
  return answer;
}

std::vector<std::string> container_names(const Value& pod) {
  const Array* containers = nullptr;
  pextract(pod)("/spec/containers", containers);
  std::vector<std::string> names;
  for (size_t i = 0; containers != nullptr && i < containers->size(); ++i) {
    names.emplace_back();
    pextract((*containers)[i])("/name", names.back());
  }
  return names;
}

bool is_running(const Value& pod, const std::string& container) {
  const Array* statuses = nullptr;
  pextract(pod)("/status/containerStatuses", statuses);
  for (size_t i = 0; statuses != nullptr && i < statuses->size(); ++i) {
    std::string name;
    const json_spirit::Object* running = nullptr;
    pextract((*statuses)[i])("/name", name)("/state/running", running);
    if (name == container) return running != nullptr;
  }
  return false;
}

/// Fills in the container. False, with @a refusal, when there is none to run a command in.
bool choose_container(const Value& pod, Exec_Target& target, Answer& refusal) {
  const std::vector<std::string> names = container_names(pod);
  if (target.container.empty() && names.size() > 1) {
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : " ") + name;
    refusal = bad_request("a container name must be specified for pod " + target.pod + ", choose one of: [" + all + "]")
                  .answer;
    return false;
  }
  if (target.container.empty() && !names.empty()) target.container = names[0];
  if (std::find(names.begin(), names.end(), target.container) == names.end()) {
    refusal = bad_request("container " + target.container + " is not valid for pod " + target.pod).answer;
    return false;
  }
  if (is_running(pod, target.container)) return true;
  refusal = container_not_found(target.container);
  return false;
}

bool is_true(const std::string* parameter) {
  return parameter != nullptr && (*parameter == "true" || *parameter == "True" || *parameter == "1");
}

}  // namespace

Cluster_Api::Cluster_Api(Cluster& cluster, const std::string& directory) : cluster_(cluster), directory_(directory) {}

void Cluster_Api::set_exec(Maker maker) {
  const std::lock_guard<std::mutex> guard(lock_);
  maker_ = std::move(maker);
}

Answer Cluster_Api::answer(const Request& request) {
  return cluster_.answer(request);
}

bool Cluster_Api::watch(const Request& request, Watch_Sink& sink) {
  return cluster_.watch(request, sink);
}

std::unique_ptr<Exec> Cluster_Api::exec(const Request& request, Answer& refusal) {
  static const std::regex form("/api/v1/namespaces/([^/]+)/pods/([^/]+)/exec/?");
  std::smatch parts;
  if (!std::regex_match(request.path, parts, form)) {
    refusal = cluster_.answer(request);
    return nullptr;
  }
  if (!cluster_.admits(request, refusal)) return nullptr;
  Exec_Target target{parts[1], parts[2], "", request.parameters("command"), is_true(request.parameter("stdin"))};
  if (const std::string* container = request.parameter("container")) target.container = *container;
  const auto pod = cluster_.get({"", "pods", target.ns, target.pod});
  if (!pod) {
    refusal = failure(404, "NotFound", "pods \"" + target.pod + "\" not found", details_of(target.pod, "", "pods"));
    return nullptr;
  }
  if (!choose_container(*pod, target, refusal)) return nullptr;
  const std::lock_guard<std::mutex> guard(lock_);
  if (maker_) return maker_(target);
  return std::make_unique<Process_Exec>(
      target.command, directory_ + "/" + target.ns + "/" + target.pod + "/" + target.container, target.with_input);
}

}  // namespace kube_sim
