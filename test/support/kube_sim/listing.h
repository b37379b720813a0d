#pragma once

#include "support/kube_sim/object_store.h"
#include "support/kube_sim/request.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/selector.h"

namespace kube_sim {

/// The selectors of a list, a watch or the deletion of a collection.
struct Selection {
  /// Throws a Refusal (400) when a selector can't be read.
  Selection(const Request& request, const Resource& resource);

  bool matches(const json_spirit::Value& object) const { return labels.matches(object) && fields.matches(object); }
  bool empty() const { return labels.empty() && fields.empty(); }

  Label_Selector labels;
  Field_Selector fields;
};

/// The answer whose body is a list: in chunks, as the real server sends what it does not know the length of at first,
/// but with a length where all of it fits into the first piece.
Answer list_document(std::string text);

/// Answers GET of a collection: selectors, resourceVersion, limit and continue. Throws Refusal.
Answer list_answer(const Request& request, const Resource& resource, const std::string& ns,
                   const Object_Store::Transaction& store);

}  // namespace kube_sim
