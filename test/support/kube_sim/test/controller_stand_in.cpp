#include "support/kube_sim/test/controller_stand_in.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

Controller_Stand_In::Controller_Stand_In(Cluster& cluster, const std::string& group,
                                         const std::vector<Recorded_Exchange>& exchanges)
    : cluster_(cluster), exchanges_(exchanges) {
  const Value document = recorded_document("controllers.json");
  const Array *namespaces = nullptr, *work = nullptr;
  json_spirit::pextract(document)(("/" + group + "/namespaces").c_str(), namespaces)(("/" + group + "/work").c_str(),
                                                                                     work);
  if (namespaces)
    for (const std::string& name : *namespaces | json_spirit::get_str) {
      Object object;
      object["metadata"].to_object()["name"] = name;
      cluster_.create("", "namespaces", object);
    }
  if (work)
    for (const Object& step : *work | json_spirit::get_obj)
      for (const std::string& name : json_spirit::object_get_array_or_throw(step, "before") | json_spirit::get_str)
        steps_[name] = step;
}

std::vector<std::string> Controller_Stand_In::unused() const {
  std::vector<std::string> names;
  for (const auto& step : steps_) names.push_back(step.first);
  return names;
}

void Controller_Stand_In::work_before(const Recorded_Exchange& exchange, Renewed_Values& renewed) {
  const auto found = steps_.find(exchange.name);
  if (found == steps_.end()) return;
  const Object step = found->second;
  steps_.erase(found);
  const Array *requests = nullptr, *from = nullptr;
  json_spirit::extract(step)("requests", requests)("from", from);
  if (requests)
    for (const Object& request : *requests | json_spirit::get_obj) send(request);
  if (from)
    for (const auto& other : exchanges_)
      if (std::find(from->begin(), from->end(), Value(other.name)) != from->end()) adopt_answer(other, renewed);
  if (!requests && !from) adopt_answer(exchange, renewed);
}

void Controller_Stand_In::send(const Object& step) {
  Request request;
  std::string target;
  json_spirit::extract(step)("method", request.method)("path", target);
  const Value* body = json_spirit::object_get_value(step, "body");
  set_target(request, target);
  if (body) request.body = json_spirit::JSON_Dump(*body, false).str();
  if (request.method == "PATCH") request.headers["content-type"] = "application/merge-patch+json";
  request.headers["authorization"] = "Bearer " + Cluster_Options().token;
  const Answer answer = cluster_.answer(request);
  EXPECT_LT(answer.status, 300) << target << ": " << answer.body;
}

void Controller_Stand_In::adopt_answer(const Recorded_Exchange& exchange, Renewed_Values& renewed) {
  const Target target = parse_target(exchange.request.path);
  const Object_Id place{target.group, target.resource, target.in_namespace ? target.ns : std::string(), target.name};
  if (exchange.status == 404)
    destroy(place);
  else if (exchange.body.get_obj().count("items"))
    adopt_list(exchange.body.get_obj(), place, exchange.request, renewed);
  else
    adopt(exchange.body.get_obj(), place, renewed);
}

void Controller_Stand_In::adopt(const Object& recorded, const Object_Id& place, Renewed_Values& renewed) {
  Object_Id id = place;
  json_spirit::pextract(recorded)("/metadata/name", id.name)("/metadata/namespace", id.ns);
  Value renewed_document(recorded);
  renew(renewed_document, renewed);
  Object object = std::move(renewed_document.get_obj());
  object["metadata"].get_obj().erase("managedFields");
  if (!cluster_.get(id)) cluster_.create(id.group, id.resource, object);
  cluster_.update(id, [&](Object& stored) {
    // The names of volumes that a pod was given stay ours.
    const Value spec = stored["spec"];
    const Value* node = nullptr;
    json_spirit::pextract(object)("/spec/nodeName", node);
    stored = object;
    if (id.resource == "pods") stored["spec"] = spec;
    if (id.resource == "pods" && node) stored["spec"].get_obj()["nodeName"] = *node;
    return true;
  });
  const auto stored = cluster_.get(id);
  if (!stored) return;
  std::string uid, recorded_uid;
  json_spirit::pextract (*stored)("/metadata/uid", uid);
  json_spirit::pextract(recorded)("/metadata/uid", recorded_uid);
  renewed[recorded_uid] = uid;
  if (!object["metadata"].get_obj().count("deletionTimestamp")) return;
  cluster_.remove(id);
}

void Controller_Stand_In::adopt_list(const Object& list, const Object_Id& place, const Request& request,
                                     Renewed_Values& renewed) {
  std::set<std::pair<std::string, std::string>> listed;
  for (const Object& item : json_spirit::object_get_array_or_throw(list, "items") | json_spirit::get_obj) {
    adopt(item, place, renewed);
    std::string ns, name;
    json_spirit::pextract(item)("/metadata/namespace", ns)("/metadata/name", name);
    listed.emplace(ns, name);
  }
  if (!request.query.empty()) return;  // only a part is shown
  for (const auto& stored : cluster_.list(place.group, place.resource, place.ns)) {
    Object_Id id = place;
    json_spirit::pextract (*stored)("/metadata/namespace", id.ns)("/metadata/name", id.name);
    if (!listed.count({id.ns, id.name})) destroy(id);
  }
}

/// Takes an object away for good, whatever holds it.
void Controller_Stand_In::destroy(const Object_Id& id) {
  cluster_.remove(id);
  cluster_.update(id, [](Object& object) {
    object["metadata"].get_obj().erase("finalizers");
    if (Object* spec = json_spirit::object_get_object(object, "spec")) spec->erase("finalizers");
    return true;
  });
}

}  // namespace kube_sim
