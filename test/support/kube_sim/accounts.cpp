#include "support/kube_sim/accounts.h"

#include <algorithm>

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/request_body.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

const char api_audience[] = "https://kubernetes.default.svc.cluster.local";

Array text_array(const std::vector<std::string>& list) {
  return Array(list.begin(), list.end());
}

/// As the server writes a list of texts into a message.
std::string go_list(const std::vector<std::string>& list) {
  std::string text;
  for (const std::string& item : list) text += (text.empty() ? "" : " ") + quoted(item);
  return "[" + text + "]";
}

std::vector<std::string> groups_of(const std::string& user) {
  const std::string prefix = "system:serviceaccount:";
  if (user.compare(0, prefix.size(), prefix) != 0) return {"system:authenticated"};
  const std::string ns = user.substr(prefix.size(), user.find(':', prefix.size()) - prefix.size());
  return {"system:serviceaccounts", "system:serviceaccounts:" + ns, "system:authenticated"};
}

std::vector<std::string> common(const std::vector<std::string>& wanted, const std::vector<std::string>& given) {
  std::vector<std::string> both;
  for (const std::string& audience : wanted)
    if (std::find(given.begin(), given.end(), audience) != given.end()) both.push_back(audience);
  return both;
}

Object refused_status(const std::string& why) {
  return Object_Maker()("user", Object())("error", "[invalid bearer token" + (why.empty() ? "" : ", " + why) + "]")
      .get_obj();
}

Object status_of(const std::optional<Account>& account, const std::vector<std::string>& wanted) {
  if (!account) return refused_status("");
  if (account->expired) return refused_status("service account token has expired");
  const auto audiences = common(wanted, account->audiences);
  if (audiences.empty()) {
    return refused_status("token audiences " + go_list(account->audiences) + " is invalid for the target audiences " +
                          go_list(wanted));
  }
  const Object user = Object_Maker()("username", account->user)("uid", "11111111-2222-4333-8444-555555555555")(
                          "groups", text_array(groups_of(account->user)))
                          .get_obj();
  return Object_Maker()("authenticated", true)("user", user)("audiences", text_array(audiences)).get_obj();
}

}  // namespace

void Accounts::set(const std::string& token, const Account& account) {
  const std::lock_guard guard(lock_);
  accounts_[token] = account;
}

void Accounts::remove(const std::string& token) {
  const std::lock_guard guard(lock_);
  accounts_.erase(token);
}

std::optional<Account> Accounts::find(const std::string& token) const {
  const std::lock_guard guard(lock_);
  const auto found = accounts_.find(token);
  return found == accounts_.end() ? std::nullopt : std::optional(found->second);
}

bool is_token_review(const Target& target) {
  return target.resource_path && target.group == "authentication.k8s.io" && target.version == "v1" &&
         target.resource == "tokenreviews" && !target.in_namespace && target.name.empty();
}

Answer review_token(const Cluster_Options& options, const Accounts& accounts, const Request& request) {
  if (request.method != "POST") throw method_not_allowed();
  const Resource resource{.group = "authentication.k8s.io",
                          .version = "v1",
                          .plural = "tokenreviews",
                          .singular = "tokenreview",
                          .kind = "TokenReview",
                          .namespaced = false};
  std::vector<std::string> warnings;
  Object review = object_in_body(request, resource, warnings);
  std::string token;
  std::vector<std::string> wanted;
  json_spirit::pextract(review)("/spec/token", token)("/spec/audiences", wanted);
  if (token.empty()) throw bad_request("token is required for TokenReview in authentication");
  if (wanted.empty()) wanted = {api_audience};
  auto account = accounts.find(token);
  if (!account && token == options.token) account = Account{"kubernetes-admin"};
  review["spec"].to_object()["audiences"] = text_array(wanted);
  review["status"] = status_of(account, wanted);
  return {.status = 201, .body = json_spirit::JSON_Dump(review, false).str() + "\n"};
}

}  // namespace kube_sim
