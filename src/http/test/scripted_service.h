#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "http/http_service.h"

/**
 * Answers a POST with its body, at once; the body "keep" is kept to be answered by the test, "empty" is answered with
 * 204. A WebSocket gets each message back.
 */
class Scripted_Service : public HTTP_Service {
 public:
  std::shared_ptr<void> post(std::string body, std::shared_ptr<HTTP_Exchange> exchange) override {
    const std::lock_guard guard(lock_);
    bodies_.push_back(body);
    auto kept = std::make_shared<int>(0);
    if (body == "keep") {
      kept_ = exchange;
      token_ = kept;
    } else if (body == "empty") {
      exchange->reply(204, "");
    } else {
      exchange->reply(200, body);
    }
    changed_.notify_all();
    return kept;
  }

  std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender> sender) override {
    const std::lock_guard guard(lock_);
    auto receiver = std::make_shared<Echo>(sender);
    receiver_ = receiver;
    sender_ = sender;
    changed_.notify_all();
    return receiver;
  }

  /// The exchange of the POST "keep", once it is there.
  std::shared_ptr<HTTP_Exchange> kept() {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return kept_ != nullptr; });
    return kept_;
  }
  /// Whether the server still keeps what it got for the POST "keep".
  bool token_is_held() const {
    const std::lock_guard guard(lock_);
    return !token_.expired();
  }
  std::shared_ptr<WebSocket_Sender> sender() {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return sender_ != nullptr; });
    return sender_;
  }
  bool receiver_is_held() const {
    const std::lock_guard guard(lock_);
    return !receiver_.expired();
  }
  size_t posts() const {
    const std::lock_guard guard(lock_);
    return bodies_.size();
  }

 private:
  class Echo : public WebSocket_Receiver {
   public:
    explicit Echo(std::shared_ptr<WebSocket_Sender> sender) : sender_(std::move(sender)) {}
    void message(std::string text) override { sender_->send(text); }

   private:
    const std::shared_ptr<WebSocket_Sender> sender_;
  };

  mutable std::mutex lock_;
  std::condition_variable changed_;
  std::vector<std::string> bodies_;
  std::shared_ptr<HTTP_Exchange> kept_;
  std::weak_ptr<void> token_;
  std::shared_ptr<WebSocket_Sender> sender_;
  std::weak_ptr<WebSocket_Receiver> receiver_;
};
