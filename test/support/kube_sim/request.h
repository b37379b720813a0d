#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kube_sim {

/// One HTTP request as the server took it.
struct Request {
  std::string method;
  /// As sent, with the query string.
  std::string target;
  /// The part of the target before '?', percent escapes decoded.
  std::string path;
  std::string body;
  /// Names and values decoded, in the order of the query string; a name may stand there more than once.
  std::vector<std::pair<std::string, std::string>> query;
  /// By lower-case names. Of a name that came more than once, the last value.
  std::map<std::string, std::string> headers;

  /// The first query parameter of that name; null when there is none. Lives as long as the request.
  const std::string* parameter(std::string_view name) const;
  /// All values of the query parameters of that name, in order.
  std::vector<std::string> parameters(std::string_view name) const;
  /// The header's value, empty when it was not sent. @a name in lower case.
  std::string header(const std::string& name) const;
};

/// Splits @a target into `path` and `query` of @a request and stores it as sent. Treats odd texts as the real server
/// does: a parameter with a raw ';' or a broken escape is dropped, '+' is a blank, a scheme and host are taken off.
/// False when the path itself holds a broken escape.
bool set_target(Request& request, std::string_view target);

}  // namespace kube_sim
