#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/kube_sim/answer.h"
#include "support/kube_sim/request.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

struct Cluster_Options;

/// Who has a token.
struct Account {
  /// "system:serviceaccount:NAMESPACE:NAME" of a service account.
  std::string user;
  /// What the token was made for; one for the API server itself has this audience.
  std::vector<std::string> audiences = {"https://kubernetes.default.svc.cluster.local"};
  bool expired = false;
};

/// The tokens that a cluster knows beside that of the user who may do everything. They come and go while it runs.
/// Threads: any.
class Accounts {
 public:
  void set(const std::string& token, const Account& account);
  void remove(const std::string& token);
  std::optional<Account> find(const std::string& token) const;

 private:
  mutable std::mutex lock_;
  std::map<std::string, Account> accounts_;  // guarded by lock_
};

bool is_token_review(const Target& target);
/// What a POST of a TokenReview is answered with. Throws a Refusal.
Answer review_token(const Cluster_Options& options, const Accounts& accounts, const Request& request);

}  // namespace kube_sim
