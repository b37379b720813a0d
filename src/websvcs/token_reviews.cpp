#include "websvcs/token_reviews.h"

#include <algorithm>

#include "kolt/clock.h"
#include "kolt/metrics.h"
#include "kolt/secure_memory.h"

using Verdict = K8S_Token_Review::Verdict;

namespace {

void count_review(const char* verdict) {
  kolt::Counter("tessarin_token_reviews_total", "Tokens that the API server was asked for.", {{"verdict", verdict}})
      .add();
}

/// "namespace/name" as "system:serviceaccount:namespace:name".
std::string user_name(std::string account) {
  std::replace(account.begin(), account.end(), '/', ':');
  return "system:serviceaccount:" + account;
}

}  // namespace

Token_Reviews::Token_Reviews(const std::vector<std::string>& accounts) {
  for (const std::string& account : accounts) users_.insert(user_name(account));
}

Token_Reviews::~Token_Reviews() {
  {
    const std::lock_guard guard(lock_);
    ending_ = true;
  }
  work_.notify_all();
  for (auto& thread : threads_) thread.join();
}

void Token_Reviews::start(std::vector<Question> questions) {
  for (Question& question : questions) {
    threads_.emplace_back([this, question = std::move(question)] { run(question); });
  }
}

unsigned Token_Reviews::check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) {
  const Token_Digest digest = digest_of(token);
  const std::lock_guard guard(lock_);
  if (const auto known = good_.get(digest)) return *known;
  if (const auto known = bad_.get(digest)) return *known;
  const auto asked = callers_.find(digest);
  if (asked != callers_.end()) {
    asked->second.push_back(std::move(verdict));
    return 0;
  }
  const time_t now = kolt::clock().now();
  const bool outage = now >= outage_ && now < outage_ + outage_seconds;
  if (outage || queue_.size() >= waiting_tokens) return 503;
  queue_.push_back({digest, token, now});
  callers_[digest].push_back(std::move(verdict));
  work_.notify_one();
  return 0;
}

void Token_Reviews::run(const Question& question) {
  std::unique_lock guard(lock_);
  for (;;) {
    work_.wait(guard, [this] { return ending_ || !queue_.empty(); });
    if (ending_) return;
    Waiting next = std::move(queue_.front());
    queue_.pop_front();
    guard.unlock();
    const unsigned verdict = ask(question, next);
    secure_memset(next.token.data(), 0, next.token.size());
    guard.lock();
    std::vector<std::shared_ptr<HTTP_Exchange>> callers;
    tell(next.digest, verdict, callers);
    guard.unlock();
    for (const auto& caller : callers) caller->reply(verdict, "");
    callers.clear();
    guard.lock();
  }
}

unsigned Token_Reviews::ask(const Question& question, const Waiting& waiting) const {
  if (kolt::clock().now() >= waiting.since + patience_seconds) return 503;
  std::string user;
  switch (question(waiting.token, user)) {
    case Verdict::ACCEPTED:
      count_review("accepted");
      return users_.count(user) ? 200 : 403;
    case Verdict::REFUSED:
      count_review("refused");
      return 401;
    default:
      count_review("unknown");
      return 503;
  }
}

void Token_Reviews::tell(const Token_Digest& digest, unsigned verdict,
                         std::vector<std::shared_ptr<HTTP_Exchange>>& callers) {
  if (verdict == 503) {
    outage_ = kolt::clock().now();
  } else {
    (verdict == 200 ? good_ : bad_).put(digest, verdict);
  }
  const auto asked = callers_.find(digest);
  callers = std::move(asked->second);
  callers_.erase(asked);
}
