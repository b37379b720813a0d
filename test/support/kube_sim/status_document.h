#pragma once

#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/answer.h"
#include "support/kube_sim/resource_table.h"

/// The answers of kind Status, in the server's words.
namespace kube_sim {

/// Thrown by whatever finds that a request can't be served.
struct Refusal {
  Answer answer;
};

/// A Status of "Failure". A null @a details is left out, and so is an empty @a reason.
Answer failure(int code, const std::string& reason, const std::string& message,
               json_spirit::Value details = json_spirit::Value());
/// The Status of "Success" that answers a DELETE.
Answer deleted(const Resource& resource, const std::string& name, const std::string& uid);

/// `{"name": ..., "group": ..., "kind": ...}` without what is empty.
json_spirit::Object details_of(const std::string& name, const std::string& group, const std::string& kind);

Refusal bad_request(const std::string& message);
Refusal not_found(const Resource& resource, const std::string& name);
/// What answers a path that leads to no resource of a group that is there.
Refusal no_such_resource();
/// What answers a path that leads nowhere at all: plain text.
Refusal no_such_page();
Refusal method_not_allowed();
Refusal already_exists(const Resource& resource, const std::string& name, bool being_deleted);
Refusal conflict(const Resource& resource, const std::string& name, const std::string& why);
Refusal forbidden(const Resource& resource, const std::string& name, const std::string& why,
                  json_spirit::Array causes = {});

/// One thing that is wrong with an object: the path of the member, and what the server calls it.
struct Cause {
  std::string reason;
  std::string message;
  std::string field;

  static Cause required(const std::string& field, const std::string& detail = {});
  /// @a value as JSON text.
  static Cause invalid(const std::string& field, const std::string& value, const std::string& detail);
  static Cause unsupported(const std::string& field, const std::string& value,
                           const std::vector<std::string>& supported);
  static Cause forbidden(const std::string& field, const std::string& detail);
};
typedef std::vector<Cause> Causes;

/// 422.
Refusal invalid(const std::string& group, const std::string& kind, const std::string& name, const Causes& causes);

/// JSON text of a string, with its quotes.
std::string quoted(const std::string& text);

}  // namespace kube_sim
