#include "support/kube_sim/control_plane.h"

#include <algorithm>
#include <ctime>

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

std::string text_at(const Value& document, const char* path) {
  std::string text;
  pextract(document)(path, text);
  return text;
}

bool is_terminating(const Value& document) {
  return !text_at(document, "/metadata/deletionTimestamp").empty();
}

std::set<std::string> strings_at(const Value& document, const char* path) {
  const Array* array = nullptr;
  pextract(document)(path, array);
  std::set<std::string> strings;
  if (array != nullptr)
    for (const Value& value : *array) strings.insert(value.get_str());
  return strings;
}

bool add_finalizer(Object& object, const std::string& finalizer) {
  Array& all = object["metadata"].to_object()["finalizers"].to_array();
  if (std::find(all.begin(), all.end(), Value(finalizer)) != all.end()) return false;
  all << Value(finalizer);
  return true;
}

bool drop_finalizer(Object& object, const std::string& finalizer) {
  Array& all = object["metadata"].to_object()["finalizers"].to_array();
  return std::erase(all, Value(finalizer)) > 0;
}

std::string now_text() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::vector<std::string> claims_of(const Value& pod) {
  const Array* volumes = nullptr;
  pextract(pod)("/spec/volumes", volumes);
  std::vector<std::string> names;
  for (size_t i = 0; volumes != nullptr && i < volumes->size(); ++i) {
    const std::string name = text_at((*volumes)[i], "/persistentVolumeClaim/claimName");
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

void Control_Plane::begin() {
  next_.reset();
  pods_of_.clear();
  claims_in_use_.clear();
  pods_ = cluster.list("", "pods");
  for (const Document_var& pod : pods_) {
    const std::string phase = text_at(*pod, "/status/phase"), owner = text_at(*pod, "/metadata/ownerReferences/0/uid");
    if (!owner.empty()) pods_of_[owner].push_back(pod);
    if (phase == "Succeeded" || phase == "Failed") continue;
    for (const std::string& claim : claims_of(*pod)) claims_in_use_.insert(namespace_of(*pod) + "/" + claim);
  }
}

bool Control_Plane::due(const Value& object, const char* step, std::chrono::milliseconds delay) {
  if (delay.count() <= 0) return true;
  const Time now = std::chrono::steady_clock::now();
  const Time end = began_.emplace(uid_of(object) + step, now).first->second + delay;
  if (end <= now) return true;
  if (!next_ || end < *next_) next_ = end;
  return false;
}

void Control_Plane::event(const Value& object, const std::string& type, const std::string& reason,
                          const std::string& message, const std::string& component) {
  if (!told_.insert(uid_of(object) + reason + message).second) return;
  char number[32];
  std::snprintf(number, sizeof number, ".%016zx", told_.size());
  const std::string ns = namespace_of(object), now = now_text();
  const Object_Maker about = Object_Maker()("kind", text_at(object, "/kind"))("namespace", ns)("name", name_of(object))(
      "uid", uid_of(object))("apiVersion", text_at(object, "/apiVersion"))(
      "resourceVersion", text_at(object, "/metadata/resourceVersion"));
  Object_Maker event;
  event("kind", "Event")("apiVersion", "v1")("type", type)("reason", reason)("message", message)("count", 1);
  event("metadata", Object_Maker()("name", name_of(object) + number)("namespace", ns.empty() ? "default" : ns));
  event("involvedObject", about)("source", Object_Maker()("component", component))("firstTimestamp", now)(
      "lastTimestamp", now);
  event("eventTime", Value())("reportingComponent", component)("reportingInstance", "");
  cluster.create("", "events", event.get_obj());
}

const Documents& Control_Plane::pods_of(const std::string& uid) const {
  static const Documents none;
  const auto found = pods_of_.find(uid);
  return found == pods_of_.end() ? none : found->second;
}

}  // namespace kube_sim
