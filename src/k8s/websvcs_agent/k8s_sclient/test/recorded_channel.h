#pragma once

#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"
#include "json_text.h"

/// Keeps what is sent on it.
class Recorded_Channel : public JSON_RPC_Channel {
 public:
  struct Error {
    int code;
    std::string message;
    json_spirit::Value id;
    json_spirit::Value data;
  };

  int send(JSON_RPC_Object_var object) override {
    sent.push_back(object);
    return send_result;
  }
  int send_error(int code, const json_spirit::Value& id, const char* message, const json_spirit::Value& data) override {
    errors.push_back({code, message, id, data});
    return send_error_result;
  }

  std::vector<JSON_RPC_Object_var> sent;
  std::vector<Error> errors;
  int send_result = 41;
  int send_error_result = 42;
};

/// A requester: its channel, which may go away, and its requests.
class Requester {
 public:
  Requester() : channel_(new Recorded_Channel), var_(channel_) {}

  Recorded_Channel& channel() { return *channel_; }
  JSON_RPC_Channel_ptr ptr() const { return JSON_RPC_Channel_ptr(var_); }
  void go_away() { var_ = JSON_RPC_Channel_var(); }

  /// A request with the id 7.
  static JSON_RPC_Object_var request(json_spirit::Value params) {
    JSON_RPC_Request* request = new JSON_RPC_Request;
    request->method("k8s.something");
    request->id(json_spirit::Value(7));
    request->params() = std::move(params);
    return JSON_RPC_Object_var(request);
  }

  /// The result of the one response that was sent, as text; "none" if there isn't exactly one.
  std::string result() const {
    if (channel_->sent.size() != 1 || !channel_->errors.empty()) return "none";
    const auto* response = dynamic_cast<const JSON_RPC_Response*>(channel_->sent[0].get());
    return response != nullptr && response->id().get_int() == 7 ? text_of(response->result()) : "none";
  }
  /// Code and text of the one error that was sent; "none" if there isn't exactly one for the id 7, without data.
  std::string error() const {
    if (channel_->errors.size() != 1 || !channel_->sent.empty()) return "none";
    const Recorded_Channel::Error& error = channel_->errors[0];
    if (error.id.type() != json_spirit::int_type || error.id.get_int() != 7 || !error.data.is_null()) return "none";
    return std::to_string(error.code) + " " + error.message;
  }
  bool got_nothing() const { return channel_->sent.empty() && channel_->errors.empty(); }

 private:
  Recorded_Channel* channel_;
  JSON_RPC_Channel_var var_;
};
