#include "support/kube_sim/cluster.h"

#include <algorithm>

#include "support/kube_sim/access.h"
#include "support/kube_sim/discovery.h"
#include "support/kube_sim/object_store.h"
#include "support/kube_sim/object_writer.h"
#include "support/kube_sim/rest_api.h"
#include "support/kube_sim/selector.h"
#include "support/kube_sim/status_document.h"
#include "support/kube_sim/watch.h"

namespace kube_sim {

using json_spirit::Object;
using json_spirit::Value;

namespace {

/// Whether one of the media types that the client takes is plain JSON.
bool takes_json(const std::string& accept) {
  if (accept.empty()) return true;
  for (std::size_t begin = 0; begin < accept.size();) {
    const std::size_t end = std::min(accept.find(',', begin), accept.size());
    std::string range = accept.substr(begin, end - begin);
    begin = end + 1;
    range.erase(0, range.find_first_not_of(' '));
    const std::string type = range.substr(0, range.find(';'));
    const bool transformed = range.find("as=") != std::string::npos;
    if (!transformed && (type == "*/*" || type == "application/*" || type == "application/json")) return true;
  }
  return false;
}

Refusal not_acceptable() {
  return {failure(406, "NotAcceptable",
                  "406: Not Acceptable\n\nAvailable representations: application/json, application/yaml, "
                  "application/vnd.kubernetes.protobuf, application/json;stream=watch, "
                  "application/vnd.kubernetes.protobuf;stream=watch",
                  Object())};
}

}  // namespace

class Cluster_Impl {
 public:
  explicit Cluster_Impl(Cluster_Options given)
      : options(std::move(given)),
        table(minor_of(options.version), options.snapshots),
        store(options.history),
        rest(table, store) {
    const Resource& namespaces = *table.find("", "v1", "namespaces");
    Object_Store::Transaction transaction(store);
    for (const char* name : {"default", "kube-node-lease", "kube-public", "kube-system"}) {
      Object object;
      object["metadata"].to_object()["name"] = name;
      complete_new(namespaces, object, transaction);
      transaction.put(id_of(namespaces, object), object);
      furnish_namespace(table, transaction, name);
    }
  }

  Answer answer(const Request& request) {
    const Target target = parse_target(request.path);
    check_access(options, accounts, request, target);
    if (is_token_review(target)) return review_token(options, accounts, request);
    if (!target.resource_path) return discovery_answer(request.method, target, table, options.version);
    rest.resource_at(target);
    if (!takes_json(request.header("accept"))) throw not_acceptable();
    return rest.answer(request, target);
  }

  const Cluster_Options options;
  Accounts accounts;
  const Resource_Table table;
  Object_Store store;
  Rest_Api rest;
};

namespace {

/// The value inside a stored object, which lives as long as that.
std::shared_ptr<const Value> value_of(const Stored_Object_var& stored) {
  return stored ? std::shared_ptr<const Value>(stored, &stored->value) : nullptr;
}

}  // namespace

Cluster::Cluster(Cluster_Options options) : impl_(std::make_unique<Cluster_Impl>(std::move(options))) {}
Cluster::~Cluster() = default;

Answer Cluster::answer(const Request& request) {
  try {
    return impl_->answer(request);
  } catch (Refusal& refusal) {
    return std::move(refusal.answer);
  }
}

bool Cluster::watch(const Request& request, Watch_Sink& sink) {
  try {
    const Target target = parse_target(request.path);
    check_access(impl_->options, impl_->accounts, request, target);
    if (!target.resource_path || !target.sub.empty()) return false;
    run_watch(request, target, impl_->rest.resource_at(target), impl_->store, sink);
    return true;
  } catch (const Refusal&) {
    return false;  // answer() refuses it again, in the form of an answer
  }
}

bool Cluster::admits(const Request& request, Answer& refusal) const {
  try {
    check_access(impl_->options, impl_->accounts, request, parse_target(request.path));
    return true;
  } catch (Refusal& refused) {
    refusal = std::move(refused.answer);
    return false;
  }
}

std::shared_ptr<const Value> Cluster::get(const Object_Id& id) const {
  return value_of(Object_Store::Transaction(impl_->store).find(id));
}

std::vector<std::shared_ptr<const Value>> Cluster::list(const std::string& group, const std::string& resource,
                                                        const std::string& ns,
                                                        const std::string& label_selector) const {
  const Label_Selector selector(label_selector);
  std::vector<std::shared_ptr<const Value>> all;
  for (const auto& stored : Object_Store::Transaction(impl_->store).list(group, resource, ns))
    if (selector.matches(stored->value)) all.push_back(value_of(stored));
  return all;
}

std::shared_ptr<const Value> Cluster::create(const std::string& group, const std::string& resource, Object object) {
  const Resource* kind = impl_->table.find(group, "", resource);
  if (!kind) return nullptr;
  Object_Store::Transaction store(impl_->store);
  complete_new(*kind, object, store);
  const Object_Id id = id_of(*kind, object);
  if (id.name.empty() || store.find(id)) return nullptr;
  const auto stored = store.put(id, std::move(object));
  if (kind->kind == "Namespace") furnish_namespace(impl_->table, store, id.name);
  return value_of(stored);
}

bool Cluster::update(const Object_Id& id, const std::function<bool(Object&)>& edit) {
  const Resource* kind = impl_->table.find(id.group, "", id.resource);
  Object_Store::Transaction store(impl_->store);
  const auto before = store.find(id);
  if (!kind || !before) return false;
  Object after = before->object();
  if (!edit(after)) return false;
  store_update(*kind, store, before, std::move(after));
  return true;
}

bool Cluster::remove(const Object_Id& id) {
  const Resource* kind = impl_->table.find(id.group, "", id.resource);
  Object_Store::Transaction store(impl_->store);
  const auto stored = store.find(id);
  if (!kind || !stored) return false;
  Delete_Options options;
  options.grace_seconds = 0;
  options.propagation = "Background";
  store_delete(*kind, store, stored, options);
  return true;
}

Accounts& Cluster::accounts() {
  return impl_->accounts;
}

int Cluster::subscribe(std::function<void(const Change&)> callback) {
  return Object_Store::Transaction(impl_->store).subscribe(std::move(callback));
}

void Cluster::unsubscribe(int subscription) {
  Object_Store::Transaction(impl_->store).unsubscribe(subscription);
}

}  // namespace kube_sim
