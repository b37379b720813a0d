#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kube_sim {

/// One HTTP answer. Date and the framing headers are added by the front.
struct Answer {
  int status = 200;
  /// Not sent when empty.
  std::string content_type = "application/json";
  std::string body = "";
  /// Further headers, as sent.
  std::vector<std::pair<std::string, std::string>> headers = {};
  /// Sent in chunks instead of with a length, as real servers send lists of more than 2 KiB.
  bool chunked = false;
};

}  // namespace kube_sim
