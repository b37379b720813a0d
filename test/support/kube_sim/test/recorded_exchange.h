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
};

/// The groups below test/data/kube-api, but those of exec.
std::vector<std::string> recorded_groups();
/// In the order in which they happened. A file that can't be read gives an empty list.
std::vector<Recorded_Exchange> recorded_exchanges(const std::string& group);

/// A JSON file below test/data/kube-api; null when it can't be read.
json_spirit::Value recorded_document(const std::string& file);

}  // namespace kube_sim
