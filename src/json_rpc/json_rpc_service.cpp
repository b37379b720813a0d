#include "json_rpc/json_rpc_service.h"

#include <map>
#include <mutex>
#include <utility>

#include "json_rpc/json_rpc_error_code.h"
#include "json_rpc/json_rpc_exchange.h"

namespace {

/// The exchanges of one WebSocket that wait for answers.
class Open_Exchanges {
 public:
  explicit Open_Exchanges(std::shared_ptr<WebSocket_Sender> sender) : sender_(std::move(sender)) {}

  size_t size() {
    const std::lock_guard guard(lock_);
    return exchanges_.size();
  }

  void add(size_t number, std::shared_ptr<JSON_RPC_Exchange> exchange) {
    const std::lock_guard guard(lock_);
    exchanges_.emplace(number, std::move(exchange));
  }

  int finish(size_t number, std::string answer) {
    std::shared_ptr<JSON_RPC_Exchange> exchange;  // let go after the lock
    {
      const std::lock_guard guard(lock_);
      const auto found = exchanges_.find(number);
      if (found != exchanges_.end()) {
        exchange = std::move(found->second);
        exchanges_.erase(found);
      }
    }
    return answer.empty() ? 0 : sender_->send(std::move(answer));
  }

 private:
  const std::shared_ptr<WebSocket_Sender> sender_;
  std::mutex lock_;
  std::map<size_t, std::shared_ptr<JSON_RPC_Exchange>> exchanges_;  // guarded by lock_
};

class Receiver : public WebSocket_Receiver {
 public:
  Receiver(const JSON_RPC_Dispatcher& dispatcher, const JSON_RPC_Service::Options& options,
           std::shared_ptr<WebSocket_Sender> sender)
      : dispatcher_(dispatcher), options_(options), open_(std::make_shared<Open_Exchanges>(std::move(sender))) {}

  void message(std::string text) override {
    if (open_->size() >= options_.max_open) {
      const JSON_RPC_Response_Error busy(JSON_RPC_E_MAX_SERVER_ERROR, json_spirit::Value::null,
                                         "Too many requests without an answer.", json_spirit::Value::null);
      open_->finish(0, JSON_RPC_Object_Dump(busy, 0).str());
      return;
    }
    const size_t number = ++last_number_;
    auto done = [weak = std::weak_ptr(open_), number](std::string answer) {
      const auto open = weak.lock();
      return open ? open->finish(number, std::move(answer)) : -1;
    };
    const auto exchange = std::make_shared<JSON_RPC_Exchange>(dispatcher_, options_.max_batch, std::move(done));
    open_->add(number, exchange);
    exchange->serve(text);
  }

 private:
  const JSON_RPC_Dispatcher& dispatcher_;
  const JSON_RPC_Service::Options options_;
  const std::shared_ptr<Open_Exchanges> open_;  // goes with the peer
  size_t last_number_ = 0;                      // 0 is no exchange
};

}  // namespace

std::shared_ptr<void> JSON_RPC_Service::post(std::string body, std::shared_ptr<HTTP_Exchange> http) {
  auto done = [http = std::move(http)](std::string answer) {
    const unsigned status = answer.empty() ? 204 : 200;
    return http->reply(status, std::move(answer));
  };
  const auto exchange = std::make_shared<JSON_RPC_Exchange>(dispatcher_, options_.max_batch, std::move(done));
  exchange->serve(body);
  return exchange;
}

std::shared_ptr<WebSocket_Receiver> JSON_RPC_Service::upgraded(std::shared_ptr<WebSocket_Sender> sender) {
  return std::make_shared<Receiver>(dispatcher_, options_, std::move(sender));
}
