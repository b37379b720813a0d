#include "support/kube_sim/discovery.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

Answer document(const Value& value) {
  return {.body = JSON_Dump(value, false).str() + "\n"};
}

Answer version_document(const std::string& version) {
  const int minor = minor_of(version);
  const std::string before = std::to_string(minor - 1), now = std::to_string(minor);
  Object_Maker body;
  body("major", "1")("minor", now)("gitVersion", version)("gitCommit", std::string(40, '0'))("gitTreeState", "clean")(
      "buildDate", "2026-01-02T03:04:05Z")("goVersion", "go1.26")("compiler", "gc")("platform", "linux/amd64");
  if (minor >= 33)
    body("emulationMajor", "1")("emulationMinor", now)("minCompatibilityMajor", "1")("minCompatibilityMinor", before);
  return document(body);
}

Array texts(const std::vector<std::string>& list) {
  Array array;
  for (const auto& text : list) array << Value(text);
  return array;
}

Object group_versions(const Resource_Table& table, const std::string& group) {
  Array versions;
  for (const auto& version : table.versions(group))
    versions << Object_Maker()("groupVersion", group + "/" + version)("version", version);
  const Value preferred = versions.front();
  return Object_Maker()("name", group)("versions", std::move(versions))("preferredVersion", preferred).get_obj();
}

Answer group_document(const Resource_Table& table, const std::string& group) {
  Object body = group_versions(table, group);
  json_spirit::insert(body)("kind", "APIGroup")("apiVersion", "v1");
  return document(body);
}

Answer group_list(const Resource_Table& table) {
  Array groups;
  for (const auto& group : table.groups()) groups << group_versions(table, group);
  return document(Object_Maker()("kind", "APIGroupList")("apiVersion", "v1")("groups", std::move(groups)));
}

Answer core_versions() {
  return document(Object_Maker()("kind", "APIVersions")("versions", texts({"v1"})));
}

Value sub_resource(const Resource& resource, const char* name) {
  return Object_Maker()("name", resource.plural + "/" + name)("singularName", "")("namespaced", resource.namespaced)(
      "kind", resource.kind)("verbs", texts({"get", "patch", "update"}));
}

void add_resource(Array& list, const Resource& resource) {
  std::vector<std::string> verbs{"create", "delete", "deletecollection", "get", "list", "patch", "update", "watch"};
  if (resource.custom) verbs = {"delete", "deletecollection", "get", "list", "patch", "create", "update", "watch"};
  if (resource.kind == "Namespace") verbs.erase(verbs.begin() + 2);
  list << Object_Maker()("name", resource.plural)("singularName", resource.singular)("namespaced", resource.namespaced)(
      "kind", resource.kind)("verbs", texts(verbs))("shortNames", texts(resource.short_names), json_spirit::skip_empty);
  if (resource.scale) {
    Value scale = sub_resource(resource, "scale");
    json_spirit::insert(scale.get_obj())("group", "autoscaling")("version", "v1")("kind", "Scale");
    list << std::move(scale);
  }
  if (resource.status) list << sub_resource(resource, "status");
}

Answer resource_list(const Resource_Table& table, const std::string& group, const std::string& version) {
  Array list;
  for (const auto& resource : table.all())
    if (resource.group == group && resource.version == version) add_resource(list, resource);
  if (list.empty()) throw no_such_resource();
  Object body;
  json_spirit::insert(body)("kind", "APIResourceList")("resources", std::move(list))(
      "groupVersion", group.empty() ? version : group + "/" + version);
  if (!group.empty()) body["apiVersion"] = "v1";  // the core group's list goes without
  return document(body);
}

/// Each group version's document says of its kinds that PATCH takes fieldValidation.
Answer openapi_of(const Resource_Table& table, const std::string& group, const std::string& version) {
  Array parameters;
  parameters << Object_Maker()("name", "fieldValidation")("in", "query")("schema", Object_Maker()("type", "string"));
  Object paths;
  for (const auto& resource : table.all()) {
    if (resource.group != group || resource.version != version) continue;
    const std::string base = (group.empty() ? "/api/" : "/apis/" + group + "/") + version + "/";
    const std::string path =
        base + (resource.namespaced ? "namespaces/{namespace}/" : "") + resource.plural + "/{name}";
    paths[path] =
        Object_Maker()("patch", Object_Maker()("parameters", parameters)(
                                    "x-kubernetes-group-version-kind",
                                    Object_Maker()("group", group)("version", version)("kind", resource.kind)));
  }
  return document(Object_Maker()("openapi", "3.0.0")("info", Object_Maker()("title", "Kubernetes")("version", version))(
      "paths", std::move(paths)));
}

Answer openapi_index(const Resource_Table& table) {
  Object paths;
  const auto add = [&](const std::string& path) {
    paths[path] = Object_Maker()("serverRelativeURL", "/openapi/v3/" + path);
  };
  add("api/v1");
  for (const auto& group : table.groups())
    for (const auto& version : table.versions(group)) add("apis/" + group + "/" + version);
  return document(Object_Maker()("paths", std::move(paths)));
}

Answer openapi(const Target& target, const Resource_Table& table) {
  const auto& parts = target.parts;
  // Older clients read the second version, in the binary form alone. This is a document that describes nothing.
  if (parts.size() == 2 && parts[1] == "v2")
    return {.content_type = "application/com.github.proto-openapi.spec.v2.v1.0+protobuf",
            .body =
                "\n\3"
                "2.0"};
  if (parts.size() < 2 || parts[1] != "v3") throw no_such_page();
  if (parts.size() == 2) return openapi_index(table);
  if (parts.size() == 4 && parts[2] == "api") return openapi_of(table, "", parts[3]);
  if (parts.size() == 5 && parts[2] == "apis") return openapi_of(table, parts[3], parts[4]);
  throw no_such_page();
}

Answer api_groups(const Target& target, const Resource_Table& table) {
  const auto& parts = target.parts;
  if (parts.front() == "api") {
    if (parts.size() == 1) return core_versions();
    return resource_list(table, "", parts[1]);
  }
  if (parts.size() == 1) return group_list(table);
  if (parts[1].empty() || !table.has_group(parts[1])) throw no_such_page();
  return parts.size() == 2 ? group_document(table, parts[1]) : resource_list(table, parts[1], parts[2]);
}

}  // namespace

int minor_of(const std::string& version) {
  const std::size_t dot = version.find('.');
  return dot == std::string::npos ? 0 : std::atoi(version.c_str() + dot + 1);
}

Answer discovery_answer(const std::string& method, const Target& target, const Resource_Table& table,
                        const std::string& version) {
  const std::string first = target.parts.empty() ? std::string() : target.parts.front();
  const bool known = (target.parts.size() == 1 &&
                      (first == "version" || first == "healthz" || first == "livez" || first == "readyz")) ||
                     first == "api" || first == "apis" || first == "openapi";
  if (!known) throw no_such_page();
  if (method != "GET") throw method_not_allowed();
  if (first == "version") return version_document(version);
  if (first == "openapi") return openapi(target, table);
  if (first == "api" || first == "apis") return api_groups(target, table);
  return {.content_type = "text/plain; charset=utf-8", .body = "ok"};
}

}  // namespace kube_sim
