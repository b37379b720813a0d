#pragma once

#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/answer.h"
#include "support/kube_sim/request.h"

namespace kube_sim {

/// One request to a real API server and what that answered.
struct Recorded_Exchange {
  std::string name;
  Request request;
  int status = 0;
  json_spirit::Object headers;
  /// Null when the answer had none, or was no JSON.
  json_spirit::Value body;
  std::string body_text;
  /// Of a watch: the objects that came, one a line.
  json_spirit::Array lines;
  std::string note;
  /// Of groups that were sent byte by byte: the version in the request line, and what became of the connection.
  std::string version;
  std::string end;
};

/// The groups below test/data/kube-api that tell what the cluster answers: not those of exec, nor those that tell how
/// HTTP is spoken.
std::vector<std::string> recorded_groups();
/// In the order in which they happened. A file that can't be read gives an empty list.
std::vector<Recorded_Exchange> recorded_exchanges(const std::string& group);

/// The token of a user who is known and may do nothing, "lab-nobody" in the recordings.
constexpr char nobody_token[] = "nobody-token";

/// Adds the Authorization header that a note tells of; the token of who may do all where there is none. False for a
/// note that tells of a token nobody here has.
bool authorize(Request& request, const std::string& note);

/// A JSON file below test/data/kube-api; null when it can't be read.
json_spirit::Value recorded_document(const std::string& file);

}  // namespace kube_sim
