#include "support/kube_sim/object_store.h"

#include <algorithm>

#include "json_spirit/dump.h"

namespace kube_sim {

using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Value;

namespace {

std::string path_of(const Object_Id& id) {
  return id.ns + "/" + id.name;
}

Stored_Object_var make_stored(const Object_Id& id, std::uint64_t revision, Object object) {
  auto stored = std::make_shared<Stored_Object>();
  object["metadata"].to_object()["resourceVersion"] = std::to_string(revision);
  stored->id = id;
  stored->revision = revision;
  stored->members = members_text(object);
  stored->value = Value(std::move(object));
  return stored;
}

}  // namespace

std::string members_text(const Object& object) {
  std::string text;
  for (const auto& [key, value] : object) {
    if (key == "kind" || key == "apiVersion") continue;
    if (!text.empty()) text += ',';
    text += JSON_Dump(Value(key), false).str() + ":" + JSON_Dump(value, false).str();
  }
  return text;
}

Stored_Object_var Object_Store::Transaction::find(const Object_Id& id) const {
  const auto objects = store_.objects_.find({id.group, id.resource});
  if (objects == store_.objects_.end()) return nullptr;
  const auto found = objects->second.find(path_of(id));
  return found == objects->second.end() ? nullptr : found->second;
}

Stored_Object_var Object_Store::Transaction::put(const Object_Id& id, Object object) {
  auto before = find(id);
  auto after = make_stored(id, ++store_.revision_, std::move(object));
  store_.objects_[{id.group, id.resource}][path_of(id)] = after;
  record({after->revision, id, std::move(before), after, nullptr});
  return after;
}

Stored_Object_var Object_Store::Transaction::erase(const Object_Id& id, Object object) {
  auto before = find(id);
  auto last = make_stored(id, ++store_.revision_, std::move(object));
  store_.objects_[{id.group, id.resource}].erase(path_of(id));
  record({last->revision, id, std::move(before), nullptr, last});
  return last;
}

void Object_Store::Transaction::record(Store_Event event) {
  const auto& shown = event.after ? event.after : event.last;
  const Change change{!event.after   ? Change_Type::deleted
                      : event.before ? Change_Type::modified
                                     : Change_Type::added,
                      event.id, std::shared_ptr<const Value>(shown, &shown->value)};
  store_.history_.push_back(std::move(event));
  if (store_.history_.size() > store_.history_limit_) store_.history_.pop_front();
  store_.changed_.notify_all();
  for (const auto& [number, callback] : store_.subscribers_) callback(change);
}

std::vector<Stored_Object_var> Object_Store::Transaction::list(const std::string& group, const std::string& resource,
                                                               const std::string& ns) const {
  std::vector<Stored_Object_var> all;
  const auto found = store_.objects_.find({group, resource});
  if (found == store_.objects_.end()) return all;
  const Objects& objects = found->second;
  if (ns.empty()) all.reserve(objects.size());
  for (auto at = ns.empty() ? objects.begin() : objects.lower_bound(ns + "/"); at != objects.end(); ++at) {
    if (!ns.empty() && at->second->id.ns != ns) break;
    all.push_back(at->second);
  }
  return all;
}

bool Object_Store::Transaction::list_at(std::uint64_t revision, const std::string& group, const std::string& resource,
                                        const std::string& ns, std::vector<Stored_Object_var>& out) const {
  if (revision < store_.oldest_locked()) return false;
  Objects objects;
  for (auto& object : list(group, resource, ns)) objects[path_of(object->id)] = object;
  for (auto event = store_.history_.rbegin(); event != store_.history_.rend() && event->revision > revision; ++event) {
    if (event->id.group != group || event->id.resource != resource || (!ns.empty() && event->id.ns != ns)) continue;
    if (event->before)
      objects[path_of(event->id)] = event->before;
    else
      objects.erase(path_of(event->id));
  }
  out.clear();
  for (auto& [path, object] : objects) out.push_back(std::move(object));
  return true;
}

int Object_Store::Transaction::subscribe(std::function<void(const Change&)> callback) {
  store_.subscribers_[++store_.last_subscription_] = std::move(callback);
  return store_.last_subscription_;
}

std::uint64_t Object_Store::oldest() const {
  std::lock_guard lock(mutex_);
  return oldest_locked();
}

bool Object_Store::events_after(std::uint64_t& revision, const std::string& group, const std::string& resource,
                                std::chrono::milliseconds patience, std::vector<Store_Event>& out) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [&] { return revision_ > revision; });
  if (revision < oldest_locked()) return false;
  const auto first = std::upper_bound(history_.begin(), history_.end(), revision,
                                      [](std::uint64_t a, const Store_Event& event) { return a < event.revision; });
  out.clear();
  for (auto event = first; event != history_.end(); ++event)
    if (event->id.group == group && event->id.resource == resource) out.push_back(*event);
  revision = std::max(revision, revision_);
  return true;
}

}  // namespace kube_sim
