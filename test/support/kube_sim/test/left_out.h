#pragma once

#include <set>
#include <string>

namespace kube_sim {

/// What left-out.json says about one exchange.
struct Left_Out {
  /// Not replayed at all.
  bool skip = false;
  /// Members of a Status that are not compared.
  std::set<std::string> without;
  /// Headers, in lower case, that are not compared.
  std::set<std::string> headers;
};

/// Gathers the entries of left-out.json that hold for the exchange.
Left_Out left_out(const std::string& group, const std::string& name);

}  // namespace kube_sim
