#include "http/refusal_log.h"

#include "ace/Log_Msg.h"

namespace http_server {

void Refusal_Log::tell(const std::string& peer, const std::string& why) {
  const std::lock_guard guard(lock_);
  const auto now = std::chrono::steady_clock::now();
  if (now - minute_ >= std::chrono::minutes(1)) {
    minute_ = now;
    lines_ = 0;
  }
  if (++lines_ > lines_per_minute) {
    ++untold_;
    return;
  }
  if (untold_ > 0) ACE_ERROR((LM_WARNING, ACE_TEXT("%u more callers were refused.\n"), static_cast<unsigned>(untold_)));
  untold_ = 0;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Caller at %C refused: %C.\n"), peer.c_str(), why.c_str()));
}

}  // namespace http_server
