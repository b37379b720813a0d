#pragma once

#include <memory>
#include <string>

#include "http/access_check.h"
#include "websvcs/agent_options.h"
#include "websvcs/token_list.h"
#include "websvcs/token_reviews.h"

/// Who may call the agent by TCP, as its options tell: who shows a token of the file, or that of a service account
/// which may, by the word of the API server. Threads: check() any.
class Caller_Check : public Access_Check {
 public:
  /// Reads the file, and starts to ask the API server, where the options want it: one of the two, or both.
  /// @return null with one line at LM_ERROR.
  static std::shared_ptr<Caller_Check> make(const Agent_Options& options);

  unsigned check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) override;

 private:
  std::unique_ptr<Token_List> list_;
  std::unique_ptr<Token_Reviews> reviews_;
};

/// Whether the options would let in everybody, or nobody. One line at LM_ERROR if so.
bool is_access_clear(const Agent_Options& options);
