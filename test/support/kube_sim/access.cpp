#include "support/kube_sim/access.h"

#include <algorithm>

#include "support/kube_sim/status_document.h"

namespace kube_sim {

namespace {

const char anonymous[] = "system:anonymous";

/// The user's name; empty for the one who may do everything.
std::string authenticate(const Cluster_Options& options, const Accounts& accounts, const Request& request) {
  static const std::string scheme = "bearer ";
  const std::string header = request.header("authorization");
  std::string given = header.substr(0, scheme.size());
  std::transform(given.begin(), given.end(), given.begin(), [](unsigned char c) { return std::tolower(c); });
  if (given != scheme) return anonymous;
  const std::size_t begin = header.find_first_not_of(' ', scheme.size());
  if (begin == std::string::npos) return anonymous;
  const std::string token = header.substr(begin);
  if (token == options.token) return {};
  if (const auto account = accounts.find(token); account && !account->expired) return account->user;
  const auto user = options.powerless.find(token);
  if (user == options.powerless.end()) throw Refusal{failure(401, "Unauthorized", "Unauthorized")};
  return user->second;
}

std::string verb(const std::string& method, bool named, bool watch) {
  if (method == "GET" || method == "HEAD") return named ? "get" : watch ? "watch" : "list";
  if (method == "POST") return "create";
  if (method == "PUT") return "update";
  if (method == "PATCH") return "patch";
  if (method == "DELETE") return named ? "delete" : "deletecollection";
  return {};
}

/// What everybody may read; users who are known may read what the API consists of, too.
bool open_path(const Target& target, const std::string& user) {
  if (target.parts.empty()) return false;
  const std::string& first = target.parts.front();
  const auto among = [&](std::initializer_list<const char*> list) {
    return std::find(list.begin(), list.end(), first) != list.end();
  };
  return among({"version", "healthz", "livez", "readyz"}) || (user != anonymous && among({"api", "apis", "openapi"}));
}

Refusal refuse_path(const Request& request, const std::string& user) {
  std::string method = request.method;
  std::transform(method.begin(), method.end(), method.begin(), [](unsigned char c) { return std::tolower(c); });
  return {failure(403, "Forbidden",
                  "forbidden: User \"" + user + "\" cannot " + method + " path \"" + request.path + "\"",
                  json_spirit::Object())};
}

Refusal refuse_resource(const Request& request, const Target& target, const std::string& user) {
  const std::string* watch = request.parameter("watch");
  const Resource resource{.group = target.group, .plural = target.resource};
  const std::string full = target.resource + (target.sub.empty() ? "" : "/" + target.sub);
  return forbidden(resource, target.name,
                   "User \"" + user + "\" cannot " + verb(request.method, !target.name.empty(), watch) +
                       " resource \"" + full + "\" in API group \"" + target.group + "\" " +
                       (target.ns.empty() ? "at the cluster scope" : "in the namespace \"" + target.ns + "\""));
}

}  // namespace

void check_access(const Cluster_Options& options, const Accounts& accounts, const Request& request,
                  const Target& target) {
  const std::string user = authenticate(options, accounts, request);
  if (user.empty()) return;
  if (target.resource_path) throw refuse_resource(request, target, user);
  if ((request.method != "GET" && request.method != "HEAD") || !open_path(target, user))
    throw refuse_path(request, user);
}

}  // namespace kube_sim
