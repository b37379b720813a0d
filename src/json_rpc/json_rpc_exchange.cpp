#include "json_rpc/json_rpc_exchange.h"

#include <atomic>
#include <utility>

#include "json_rpc/json_rpc_error_code.h"
#include "json_rpc/json_rpc_parser.h"
#include "json_spirit/json_spirit_helper.h"

using json_spirit::Value;

namespace {

/// The channel of one request: takes one answer.
class Call : public JSON_RPC_Channel {
 public:
  explicit Call(std::weak_ptr<JSON_RPC_Exchange> exchange) : exchange_(std::move(exchange)) {}

  int send(JSON_RPC_Object_var object) override {
    if (object.null() || answered_.exchange(true)) return -1;
    const auto exchange = exchange_.lock();
    return exchange ? exchange->answer(*object) : -1;
  }

 private:
  const std::weak_ptr<JSON_RPC_Exchange> exchange_;
  std::atomic<bool> answered_{false};
};

/// The channel of a notification: nothing comes back.
class No_Answer : public JSON_RPC_Channel {
 public:
  int send(JSON_RPC_Object_var) override { return 0; }
};

}  // namespace

JSON_RPC_Exchange::JSON_RPC_Exchange(const JSON_RPC_Dispatcher& dispatcher, size_t max_batch, Done done)
    : dispatcher_(dispatcher), max_batch_(max_batch), done_(std::move(done)) {}

void JSON_RPC_Exchange::serve(std::string_view text) {
  Value document;
  if (!json_spirit::loads_json(text, document)) {
    refuse(JSON_RPC_E_PARSE_ERROR, "Parse error.");
  } else if (document.type() == json_spirit::array_type) {
    serve_batch(document.get_array());
  } else {
    serve_message(std::move(document));
  }
}

void JSON_RPC_Exchange::serve_batch(json_spirit::Array& batch) {
  if (batch.empty()) return refuse(JSON_RPC_E_INVALID_REQUEST, "Invalid request: the batch is empty.");
  if (batch.size() > max_batch_) return refuse(JSON_RPC_E_INVALID_REQUEST, "Invalid request: the batch is too long.");
  is_batch_ = true;
  hold();
  for (Value& document : batch) serve_message(std::move(document));
  settle(std::string());
}

void JSON_RPC_Exchange::serve_message(Value&& document) {
  const JSON_RPC_Object_var message = parse_json_rpc_request(std::move(document));
  if (message.null()) return refuse(JSON_RPC_E_INVALID_REQUEST, "Invalid request.");
  if (message->is_request()) return dispatcher_.dispatch(open_call(), message);
  hold();
  dispatcher_.dispatch(JSON_RPC_Channel_var(new No_Answer), message);
  settle(std::string());
}

JSON_RPC_Channel_var JSON_RPC_Exchange::open_call() {
  const JSON_RPC_Channel_var call(new Call(weak_from_this()));
  hold();
  const std::lock_guard guard(lock_);
  calls_.push_back(call);
  return call;
}

void JSON_RPC_Exchange::hold() {
  const std::lock_guard guard(lock_);
  ++open_;
}

// The id is null: that of a broken message cannot be trusted.
void JSON_RPC_Exchange::refuse(int code, const char* message) {
  hold();
  answer(JSON_RPC_Response_Error(code, Value::null, message, Value::null));
}

int JSON_RPC_Exchange::answer(const JSON_RPC_Object& object) {
  return settle(JSON_RPC_Object_Dump(object, 0).str());
}

int JSON_RPC_Exchange::settle(const std::string& text) {
  std::vector<JSON_RPC_Channel_var> calls;  // let go after the lock
  Done done;
  {
    const std::lock_guard guard(lock_);
    if (!text.empty() && !answers_.empty()) answers_ += ',';
    answers_ += text;
    if (--open_ > 0) return 0;
    calls.swap(calls_);
    done.swap(done_);
  }
  const bool wrap = is_batch_ && !answers_.empty();
  return done(wrap ? '[' + answers_ + ']' : std::move(answers_));
}
