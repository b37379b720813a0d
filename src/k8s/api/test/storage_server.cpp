#include "storage_server.h"

#include <gtest/gtest.h>

#include <new>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_session_factory.h"
#include "kolt/clock.h"
#include "kolt/string_sprintf.h"

using boost::algorithm::contains;
using boost::algorithm::starts_with;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

test_support::Storage_Server* current_server = nullptr;

constexpr char classes_path[] = "/apis/storage.k8s.io/v1/storageclasses";
constexpr char volumes_path[] = "/api/v1/persistentvolumes/";
constexpr char copy_mark[] = "copy-of-";
constexpr char driver[] = "driver.example.com";

std::string text_at(const Value& document, const char* pointer) {
  std::string text;
  pextract(document)(pointer, text);
  return text;
}

bool is_clone(const Value& claim) {
  return text_at(claim, "/spec/dataSource/kind") == "PersistentVolumeClaim";
}

}  // namespace

namespace test_support {

class Storage_Session : public K8S_Session {
 public:
  explicit Storage_Session(Storage_Server& server) : server_(server) {}

  bool get(const std::string& url, Value& val) override {
    const bool exchanged = server_.exchange("GET", url, nullptr) != 0;
    val = server_.reply_;
    return exchanged && !val.is_null();
  }
  bool get(const std::string&, std::string&, const ACE_Time_Value*) override { return false; }
  bool delete_(const std::string& url) override { return server_.exchange("DELETE", url, nullptr) != 0; }
  bool post(const std::string& url, const Value& val) override { return server_.exchange("POST", url, &val) != 0; }
  bool patch(const std::string& url, const Value& val, const char* content_type) override {
    return server_.exchange(std::string("PATCH(") + content_type + ")", url, &val) != 0;
  }
  int response_status() override { return server_.status_; }
  bool init() override { return true; }
  void set_request_token() override {}

 private:
  Storage_Server& server_;
};

Storage_Server::Storage_Server() {
  current_server = this;
  reset();
}

Storage_Server::~Storage_Server() {
  current_server = nullptr;
}

void Storage_Server::reset() {
  objects_.clear();
  names_.clear();
  requests_.clear();
  add("/apis/snapshot.storage.k8s.io/v1/volumesnapshotclasses/snaps",
      string_sprintf(R"({"kind":"VolumeSnapshotClass","metadata":{"name":"snaps"},"driver":"%s"})", driver));
}

void Storage_Server::add_class(const std::string& name, const Class_Behaviour& behaviour) {
  classes_[name] = behaviour;
  Object_Maker document;
  document("kind", "StorageClass")("apiVersion", "storage.k8s.io/v1")("provisioner", driver)(
      "metadata", Object_Maker()("name", name)("uid", "uid-of-" + name)("resourceVersion", "1")(
                      "annotations", Object_Maker()("original", name)));
  if (behaviour.mode) document("volumeBindingMode", behaviour.mode);
  objects_[std::string(classes_path) + "/" + name].document = document;
}

void Storage_Server::add(const std::string& path, const std::string& json) {
  EXPECT_TRUE(json_spirit::loads_json(json, objects_[path].document)) << json;
}

std::map<std::string, Value> Storage_Server::objects() const {
  std::map<std::string, Value> result;
  for (const auto& [path, stored] : objects_)
    if (!starts_with(path, volumes_path)) result[path] = stored.document;
  return result;
}

std::vector<std::string> Storage_Server::requests() const {
  std::vector<std::string> result;
  for (const std::string& request : requests_) result.push_back(legible(request));
  return result;
}

std::string Storage_Server::legible(std::string text) const {
  for (const auto& [name, meaning] : names_) boost::algorithm::replace_all(text, name, meaning);
  return text;
}

std::string Storage_Server::real(std::string text) const {
  for (const auto& [name, meaning] : names_) boost::algorithm::replace_all(text, meaning, name);
  return text;
}

int Storage_Server::exchange(const std::string& verb, const std::string& url, const Value* body) {
  if (body) learn_names(url, *body);
  requests_.push_back(verb + " " + url);
  sent_ = body ? *body : Value();
  reply_ = Value();
  const std::optional<Exchange_Fault> failure =
      fault ? fault(requests_.size(), legible(requests_.back())) : std::nullopt;
  if (!failure || failure->carried) status_ = answer(verb, url, body);
  if (!failure) return status_;
  reply_ = Value();
  return status_ = failure->status == 0 ? 0 : refuse(failure->status, "Injected");
}

int Storage_Server::answer(const std::string& verb, const std::string& url, const Value* body) {
  for (auto at = objects_.begin(); at != objects_.end();)
    at = at->second.gone_at <= kolt::clock().now() ? objects_.erase(at) : std::next(at);
  if (verb == "GET") return read(url);
  if (verb == "POST") return make(url, *body);
  if (verb == "DELETE") return remove(url);
  return change(url, *body);
}

int Storage_Server::read(const std::string& url) {
  const auto found = objects_.find(url);
  if (found != objects_.end()) {
    age(found->second);
    reply_ = found->second.document;
    return 200;
  }
  const bool collection = url.ends_with("/storageclasses") || url.ends_with("/persistentvolumeclaims") ||
                          url.ends_with("/volumesnapshotclasses") || contains(url, "?");
  if (!collection) return refuse(404, "NotFound");
  Array items;
  for (const auto& [path, stored] : objects_)
    if (starts_with(path, url + "/")) items.push_back(stored.document);
  reply_ = Object_Maker()("kind", "List")("items", std::move(items));
  return 200;
}

int Storage_Server::make(const std::string& url, Value document) {
  const std::string path = url + (url.ends_with('/') ? "" : "/") + text_at(document, "/metadata/name");
  if (objects_.contains(path)) return refuse(409, "AlreadyExists");
  if (text_at(document, "/kind") == "PersistentVolumeClaim") {
    const Class_Behaviour& behaviour = behaviour_of(document);
    if (is_clone(document) ? behaviour.clone_refused : behaviour.claim_refused) return refuse(422, "Invalid");
    document.get_obj()["status"] = Object_Maker()("phase", "Pending");
  }
  objects_[path] = {.document = document, .made_at = kolt::clock().now()};
  reply_ = std::move(document);
  return 201;
}

int Storage_Server::remove(const std::string& url) {
  const auto found = objects_.find(url);
  if (found == objects_.end()) return refuse(404, "NotFound");
  const bool claim = text_at(found->second.document, "/kind") == "PersistentVolumeClaim";
  const int gone_sec = claim ? behaviour_of(found->second.document).gone_sec : 0;
  if (gone_sec == 0)
    objects_.erase(found);
  else
    found->second.gone_at = std::min(found->second.gone_at, kolt::clock().now() + gone_sec);
  return 200;
}

int Storage_Server::change(const std::string& url, const Value& patch) {
  const auto found = objects_.find(url);
  if (found == objects_.end()) return refuse(404, "NotFound");
  for (const auto& [key, value] : patch.get_obj().at("data").get_obj())
    found->second.document.get_obj()["data"].to_object()[key] = value;
  return 200;
}

int Storage_Server::refuse(int status, const std::string& reason) {
  reply_ = Object_Maker()("kind", "Status")("status", "Failure")("reason", reason)("code", status);
  return status;
}

void Storage_Server::age(Stored& stored) {
  const std::string kind = text_at(stored.document, "/kind");
  if (kind == "PersistentVolumeClaim") age_claim(stored);
  if (kind == "VolumeSnapshot") age_snapshot(stored);
}

void Storage_Server::age_claim(Stored& stored) {
  Object& claim = stored.document.get_obj();
  const Class_Behaviour& behaviour = behaviour_of(stored.document);
  const std::string sc = text_at(stored.document, "/spec/storageClassName");
  const auto sc_path = std::string(classes_path) + "/" + sc;
  const bool waits = has(sc_path) && text_at(at(sc_path), "/volumeBindingMode") == "WaitForFirstConsumer";
  const int wait = is_clone(stored.document) ? behaviour.clone_bound_sec : behaviour.bound_sec;
  if (waits || kolt::clock().now() < stored.made_at + wait) return;
  const std::string volume = "pv-" + text_at(stored.document, "/metadata/name");
  claim["status"].to_object()["phase"] = "Bound";
  claim["spec"].to_object()["volumeName"] = volume;
  add(volumes_path + volume, string_sprintf(R"({"kind":"PersistentVolume","spec":{"csi":{"driver":"%s"}}})", driver));
}

void Storage_Server::age_snapshot(Stored& stored) {
  const std::string claim_name = text_at(stored.document, "/spec/source/persistentVolumeClaimName");
  const std::string path = "/api/v1/namespaces/backup/persistentvolumeclaims/" + claim_name;
  if (!has(path) || kolt::clock().now() < stored.made_at + behaviour_of(at(path)).ready_sec) return;
  stored.document.get_obj()["status"] =
      Object_Maker()("boundVolumeSnapshotContentName", "content-" + claim_name)("readyToUse", true);
}

std::string Storage_Server::original_of(const std::string& sc) const {
  const auto copy = names_.find(sc);
  return copy == names_.end() ? sc : copy->second.substr(std::string(copy_mark).size());
}

const Class_Behaviour& Storage_Server::behaviour_of(const Value& claim) const {
  static const Class_Behaviour ordinary;
  const auto found = classes_.find(original_of(text_at(claim, "/spec/storageClassName")));
  return found == classes_.end() ? ordinary : found->second;
}

void Storage_Server::learn_names(const std::string& url, const Value& document) {
  const std::string name = text_at(document, "/metadata/name");
  if (url == classes_path) {
    names_[name] = copy_mark + text_at(document, "/metadata/annotations/original");
  } else if (text_at(document, "/kind") == "PersistentVolumeClaim" && !is_clone(document)) {
    names_[name] = "claim-of-" + original_of(text_at(document, "/spec/storageClassName"));
  }
}

}  // namespace test_support

/// Takes the place of the library's own.
std::unique_ptr<K8S_Session> K8S_Session_Factory::create(const std::string&) {
  if (!current_server) return nullptr;
  if (current_server->no_memory) throw std::bad_alloc();
  return std::make_unique<test_support::Storage_Session>(*current_server);
}
