#pragma once

#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/request.h"
#include "support/kube_sim/resource_table.h"

/// Reading the bodies of requests, refusing what the real server refuses in its words. Everything here throws Refusal.
namespace kube_sim {

/// The media type of a request without its parameters, in lower case.
std::string media_type(const Request& request);

/// The object in the body of a POST or PUT. It has kind and apiVersion, and nothing of what the server keeps to itself
/// (managedFields, selfLink). @a warnings gets the texts of the Warning headers.
json_spirit::Object object_in_body(const Request& request, const Resource& resource,
                                   std::vector<std::string>& warnings);

enum class Patch_Kind { json, merge, strategic };
/// 415 for a content type that PATCH of this resource does not take.
Patch_Kind patch_kind(const Request& request, const Resource& resource);
/// A JSON array for Patch_Kind::json, otherwise an object.
json_spirit::Value patch_in_body(const Request& request, Patch_Kind kind);

/// Options of DELETE, from the body and, where it says nothing, from the query.
struct Delete_Options {
  long grace_seconds = -1;  // -1: not given
  std::string propagation;  // empty: not given
  std::string uid, resource_version;
  bool dry_run = false;
};
Delete_Options delete_options(const Request& request);

bool dry_run(const Request& request);

/// Members that are no strings where strings have to be: the text that the server tells about it, empty if all is well.
std::string type_error(const Resource& resource, const json_spirit::Object& object);

/// Takes out members that objects of the kind don't have; a warning for each, or 400 with fieldValidation=Strict.
void drop_unknown_members(const Request& request, const Resource& resource, json_spirit::Object& object,
                          std::vector<std::string>& warnings);

/// Answers the members of @a object that are not in @a known, as dropped from it.
std::vector<std::string> take_unknown(json_spirit::Object& object, const std::vector<std::string>& known,
                                      const std::string& prefix);

}  // namespace kube_sim
