#include "support/kube_sim/status_document.h"

#include <algorithm>

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

Array to_array(const Causes& causes) {
  Array array;
  for (const auto& cause : causes)
    array << Object_Maker()("reason", cause.reason)("message", cause.message)("field", cause.field);
  return array;
}

/// The texts of all causes, each text once.
std::string joined(const Causes& causes) {
  std::vector<std::string> texts;
  for (const auto& cause : causes) {
    std::string text = cause.field + ": " + cause.message;
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(std::move(text));
  }
  if (texts.size() == 1) return texts.front();
  std::string all;
  for (const auto& text : texts) all += (all.empty() ? "" : ", ") + text;
  return "[" + all + "]";
}

}  // namespace

std::string quoted(const std::string& text) {
  return JSON_Dump(Value(text), false).str();
}

Object details_of(const std::string& name, const std::string& group, const std::string& kind) {
  Object details;
  json_spirit::insert(details)("name", name, json_spirit::skip_empty)("group", group, json_spirit::skip_empty)(
      "kind", kind, json_spirit::skip_empty);
  return details;
}

Answer failure(int code, const std::string& reason, const std::string& message, Value details) {
  Object status;
  json_spirit::insert(status)("kind", "Status")("apiVersion", "v1")("metadata", Object())("status", "Failure")(
      "message", message)("reason", reason, json_spirit::skip_empty)("details", std::move(details),
                                                                     json_spirit::skip_null)("code", code);
  return {.status = code, .body = JSON_Dump(status, false).str() + "\n"};
}

Answer deleted(const Resource& resource, const std::string& name, const std::string& uid) {
  Object details = details_of(name, resource.group, resource.plural);
  details["uid"] = uid;
  Object status;
  json_spirit::insert(status)("kind", "Status")("apiVersion", "v1")("metadata", Object())("status", "Success")(
      "details", std::move(details));
  return {.body = JSON_Dump(status, false).str() + "\n"};
}

Refusal bad_request(const std::string& message) {
  return {failure(400, "BadRequest", message)};
}

Refusal not_found(const Resource& resource, const std::string& name) {
  return {failure(404, "NotFound", resource.qualified() + " \"" + name + "\" not found",
                  details_of(name, resource.group, resource.plural))};
}

Refusal no_such_resource() {
  return {failure(404, "NotFound", "the server could not find the requested resource", Object())};
}

Refusal no_such_page() {
  return {{.status = 404, .content_type = "text/plain; charset=utf-8", .body = "404 page not found\n"}};
}

Refusal method_not_allowed() {
  return {
      failure(405, "MethodNotAllowed", "the server does not allow this method on the requested resource", Object())};
}

Refusal already_exists(const Resource& resource, const std::string& name, bool being_deleted) {
  return {failure(
      409, "AlreadyExists",
      (being_deleted ? "object is being deleted: " : "") + resource.qualified() + " \"" + name + "\" already exists",
      details_of(name, resource.group, resource.plural))};
}

Refusal conflict(const Resource& resource, const std::string& name, const std::string& why) {
  return {failure(409, "Conflict",
                  "Operation cannot be fulfilled on " + resource.qualified() + " \"" + name + "\": " + why,
                  details_of(name, resource.group, resource.plural))};
}

Refusal forbidden(const Resource& resource, const std::string& name, const std::string& why, Array causes) {
  Object details = details_of(name, resource.group, resource.plural);
  if (!causes.empty()) details["causes"] = std::move(causes);
  return {failure(403, "Forbidden",
                  resource.qualified() + (name.empty() ? "" : " \"" + name + "\"") + " is forbidden: " + why,
                  std::move(details))};
}

Cause Cause::required(const std::string& field, const std::string& detail) {
  return {"FieldValueRequired", "Required value" + (detail.empty() ? "" : ": " + detail), field};
}

Cause Cause::invalid(const std::string& field, const std::string& value, const std::string& detail) {
  return {"FieldValueInvalid", "Invalid value: " + value + ": " + detail, field};
}

Cause Cause::unsupported(const std::string& field, const std::string& value,
                         const std::vector<std::string>& supported) {
  std::string list;
  for (const auto& one : supported) list += (list.empty() ? "" : ", ") + quoted(one);
  return {"FieldValueNotSupported", "Unsupported value: " + quoted(value) + ": supported values: " + list, field};
}

Cause Cause::forbidden(const std::string& field, const std::string& detail) {
  return {"FieldValueForbidden", "Forbidden: " + detail, field};
}

Refusal invalid(const std::string& group, const std::string& kind, const std::string& name, const Causes& causes) {
  Object details = details_of(name, group, kind);
  details["causes"] = to_array(causes);
  return {failure(422, "Invalid",
                  kind + (group.empty() ? "" : "." + group) + " \"" + name + "\" is invalid: " + joined(causes),
                  std::move(details))};
}

}  // namespace kube_sim
