#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "http/access_check.h"
#include "k8s/api/k8s_token_review.h"
#include "websvcs/verdict_cache.h"

/**
 * Lets in who shows the token of an allowed service account, as the API server tells. It is asked by two threads of
 * their own, once for all who show one token at the same time.
 *
 * A good token is known for 60 seconds, another one for 10; of both kinds the newest 1,000, each kind by itself, so
 * that who guesses pushes out nobody. 64 tokens wait at most; who comes then is told 503, and so is who has waited for
 * 15 seconds. While the server cannot be asked, all that is not known is told 503, and the next question is not asked
 * before a second has passed.
 *
 * Life: start(), then check(); the destructor waits for a question that is under way.
 */
class Token_Reviews : public Access_Check {
 public:
  /// Asks for one token; called by one thread at a time.
  typedef std::function<K8S_Token_Review::Verdict(const std::string& token, std::string& user)> Question;

  static constexpr int good_seconds = 60;
  static constexpr int bad_seconds = 10;
  static constexpr int outage_seconds = 1;
  static constexpr int patience_seconds = 15;
  static constexpr size_t known_tokens = 1000;
  static constexpr size_t waiting_tokens = 64;

  /// @param accounts  "namespace/name".
  explicit Token_Reviews(const std::vector<std::string>& accounts);
  ~Token_Reviews() override;

  /// @param questions  one for each thread.
  void start(std::vector<Question> questions);

  /// 200, 401 (the server does not accept the token), 403 (it does, but its owner is not allowed), 503.
  unsigned check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) override;

 private:
  struct Waiting {
    Token_Digest digest;
    std::string token;
    time_t since;
  };

  void run(const Question& question);
  unsigned ask(const Question& question, const Waiting& waiting) const;
  void tell(const Token_Digest& digest, unsigned verdict, std::vector<std::shared_ptr<HTTP_Exchange>>& callers);

  std::set<std::string> users_;  // as the server names them
  std::vector<std::thread> threads_;

  std::mutex lock_;
  std::condition_variable work_;
  bool ending_ = false;  // guarded by lock_, as all below
  Verdict_Cache good_{known_tokens, good_seconds};
  Verdict_Cache bad_{known_tokens, bad_seconds};
  time_t outage_ = 0;  // when the server could not be asked at last
  std::deque<Waiting> queue_;
  std::map<Token_Digest, std::vector<std::shared_ptr<HTTP_Exchange>>> callers_;  // of those in the queue or being asked
};
