#include "support/kube_sim/target.h"

namespace kube_sim {

namespace {

std::vector<std::string> split(const std::string& path) {
  std::size_t end = path.find_last_not_of('/');
  end = end == std::string::npos ? 0 : end + 1;
  std::vector<std::string> parts;
  for (std::size_t begin = 1; begin < end;) {
    const std::size_t slash = std::min(path.find('/', begin), end);
    parts.push_back(path.substr(begin, slash - begin));
    begin = slash + 1;
  }
  return parts;
}

}  // namespace

Target parse_target(const std::string& path) {
  Target target;
  target.parts = split(path);
  const auto& parts = target.parts;
  const bool core = !parts.empty() && parts[0] == "api", grouped = !parts.empty() && parts[0] == "apis";
  std::size_t at = core ? 2 : 3;
  if ((!core && !grouped) || parts.size() <= at) return target;
  target.resource_path = true;
  if (grouped) target.group = parts[1];
  target.version = parts[at - 1];
  const auto rest = [&](std::size_t ahead) { return at + ahead < parts.size() ? parts[at + ahead] : std::string(); };
  if (rest(0) == "namespaces" && parts.size() > at + 1) {
    target.ns = rest(1);
    target.in_namespace = parts.size() > at + 2 && rest(2) != "status" && rest(2) != "finalize";
    if (target.in_namespace) at += 2;
  }
  target.resource = rest(0);
  target.name = rest(1);
  target.sub = rest(2);
  target.too_long = parts.size() > at + 3;
  return target;
}

}  // namespace kube_sim
