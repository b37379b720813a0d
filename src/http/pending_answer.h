#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "http/http_service.h"

/// The answer to one POST, on its way from whatever thread to the connection. Threads: any.
class Pending_Answer : public HTTP_Exchange {
 public:
  /// @param arrived  called once, by the thread that answers; not called, and let go, once the exchange has ended.
  explicit Pending_Answer(std::function<void()> arrived) : arrived_(std::move(arrived)) {}

  int reply(unsigned status, std::string body) override;

  bool has_arrived() const;
  /// Takes no answer from now on.
  /// @retval false  there was none; the outputs are untouched.
  bool end(unsigned& status, std::string& body);

 private:
  mutable std::mutex lock_;
  std::function<void()>
      arrived_;  // guarded by lock_, as all below; empty when an answer came or the exchange has ended
  bool answered_ = false;
  unsigned status_ = 0;
  std::string body_;
};
