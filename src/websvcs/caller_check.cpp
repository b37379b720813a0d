#include "websvcs/caller_check.h"

#include "ace/Log_Msg.h"

namespace {

constexpr size_t review_threads = 2;

/// With a session of its own.
Token_Reviews::Question make_question(const Agent_Options& options) {
  const auto review = std::make_shared<K8S_Token_Review>(options.token_audiences);
  if (!review->init()) return nullptr;
  return [review](const std::string& token, std::string& user) { return review->review(token, user); };
}

}  // namespace

bool is_access_clear(const Agent_Options& options) {
  const char* fault = nullptr;
  if (!options.tls_cert.empty() && options.token_file.empty() && !options.token_review) {
    fault = "--tls-cert needs --token-file or --token-review: callers could not be told from others";
  } else if (options.token_review && options.allowed_accounts.empty()) {
    fault = "--token-review needs --allow-service-account: nobody could call";
  }
  if (fault) ACE_ERROR((LM_ERROR, ACE_TEXT("The agent does not start: %C.\n"), fault));
  return fault == nullptr;
}

std::shared_ptr<Caller_Check> Caller_Check::make(const Agent_Options& options) {
  const auto made = std::make_shared<Caller_Check>();
  if (!options.token_file.empty()) {
    made->list_ = std::make_unique<Token_List>(options.token_file);
    if (made->list_->load() == -1) return nullptr;
  }
  if (options.token_review) {
    std::vector<Token_Reviews::Question> questions;
    while (questions.size() < review_threads) {
      questions.push_back(make_question(options));
      if (!questions.back()) return nullptr;
    }
    made->reviews_ = std::make_unique<Token_Reviews>(options.allowed_accounts);
    made->reviews_->start(std::move(questions));
  }
  return made;
}

unsigned Caller_Check::check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) {
  const unsigned listed = list_ ? list_->check(digest_of(token)) : 401;
  return listed == 200 || !reviews_ ? listed : reviews_->check(token, std::move(verdict));
}
