#include "support/scripted_session.h"

#include <gtest/gtest.h>

#include "json_spirit/dump.h"
#include "support/request_list.h"

using json_spirit::JSON_Dump;
using json_spirit::Value;

namespace test_support {

class Scripted_Server::Session : public K8S_Session {
 public:
  explicit Session(Scripted_Server& server) : server_(server) {}

  bool get(const std::string& url, Value& val) override {
    const bool exchanged = server_.exchange("GET " + url, nullptr, nullptr);
    val = server_.reply_;
    return exchanged && !val.is_null();
  }
  bool get(const std::string& url, std::string&, const ACE_Time_Value*) override {
    ADD_FAILURE() << "a resource reads no text, but GET " << url;
    return false;
  }
  bool delete_(const std::string& url) override { return server_.exchange("DELETE " + url, nullptr, nullptr); }
  bool post(const std::string& url, const Value& val) override {
    return server_.exchange("POST " + url, &val, nullptr);
  }
  bool patch(const std::string& url, const Value& val, const char* content_type) override {
    return server_.exchange("PATCH " + url, &val, content_type);
  }
  int response_status() override { return server_.status_; }
  bool init() override { return true; }
  void set_request_token() override {}

 private:
  Scripted_Server& server_;
};

Scripted_Server::~Scripted_Server() {
  next_ += asked_;
  for (; next_ < steps_.size(); ++next_) ADD_FAILURE() << "never requested: " << steps_[next_].request;
}

K8S_Client_var Scripted_Server::client() {
  return std::make_shared<K8S_Client>(std::make_unique<Session>(*this));
}

bool Scripted_Server::exchange(const std::string& request, const Value* body, const char* content_type) {
  requests_.push_back(request);
  note_request(request.substr(0, request.find(' ')), request.substr(request.find(' ') + 1));
  status_ = 0;
  reply_ = Value();
  sent_ = body ? *body : Value();
  if (asked_ && steps_[next_].request != request) {
    asked_ = false;
    ++next_;
  }
  if (next_ == steps_.size() || steps_[next_].request != request) {
    ADD_FAILURE() << "unexpected: " << request
                  << "\n expected: " << (next_ == steps_.size() ? "nothing more" : steps_[next_].request);
    return false;
  }
  const Step& step = steps_[next_];
  asked_ = step.again;
  next_ += !step.again;
  if (!step.body.empty()) {
    EXPECT_EQ(JSON_Dump(sent_, true).str(), JSON_Dump(json(step.body), true).str()) << request;
  }
  EXPECT_EQ(content_type ? content_type : "", step.content_type) << request;
  status_ = step.status;
  if (status_ != 0) json_spirit::loads_json(step.reply.c_str(), reply_);
  return status_ != 0;
}

Value json(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(text.c_str(), value)) << text;
  return value;
}

}  // namespace test_support
