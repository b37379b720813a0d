#pragma once

#include "support/kube_sim/object_store.h"
#include "support/kube_sim/request_body.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

/// Requests on the objects of a resource. Everything here throws Refusal.
class Rest_Api {
 public:
  Rest_Api(const Resource_Table& table, Object_Store& store) : table_(table), store_(store) {}

  Answer answer(const Request& request, const Target& target);
  /// The resource that a path below a group's version leads to; refuses what leads nowhere.
  const Resource& resource_at(const Target& target) const;

 private:
  Answer on_collection(const Request& request, const Target& target, const Resource& resource);
  Answer on_object(const Request& request, const Target& target, const Resource& resource);
  Answer on_scale(const Request& request, const Target& target, const Resource& resource);

  Answer create(const Request& request, const Target& target, const Resource& resource);
  Answer remove_all(const Request& request, const Target& target, const Resource& resource);
  Answer remove(const Request& request, const Target& target, const Resource& resource);
  Answer change(const Request& request, const Target& target, const Resource& resource);

  const Resource_Table& table_;
  Object_Store& store_;
};

/// Texts for the client's log, each in a Warning header.
void add_warnings(Answer& answer, const std::vector<std::string>& warnings);

/// 409 when @a object names a resourceVersion, or a uid, that @a before does not have.
void check_version(const Resource& resource, const Stored_Object_var& before, const json_spirit::Object& object);

/// What a PATCH makes of @a before.
json_spirit::Object patched(const Request& request, const Resource& resource, const json_spirit::Object& before);

/// The object that the path names; 404 when there is none.
Stored_Object_var require(const Object_Store::Transaction& store, const Resource& resource, const Target& target);

}  // namespace kube_sim
