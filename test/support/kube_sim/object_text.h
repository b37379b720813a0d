#pragma once

#include <string>
#include <vector>

#include "support/kube_sim/object_store.h"
#include "support/kube_sim/resource_table.h"

/// Objects and lists as JSON text, from the text that each stored object keeps.
namespace kube_sim {

/// The whole document, in the version of @a resource.
std::string object_text(const Resource& resource, const std::string& members);

struct List_Head {
  std::uint64_t revision = 0;
  std::string continue_token = {};
  /// Items behind this page; negative: unknown.
  long remaining = -1;
};

/// Items of built-in kinds stand without kind and apiVersion, items of custom ones with them.
std::string list_text(const Resource& resource, const List_Head& head, const std::vector<Stored_Object_var>& items);

}  // namespace kube_sim
