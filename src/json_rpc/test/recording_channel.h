#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"

/// Keeps the texts that were sent.
class Recording_Channel : public JSON_RPC_Channel {
 public:
  int send(JSON_RPC_Object_var object) override {
    const std::lock_guard guard(lock_);
    sent_.push_back(JSON_RPC_Object_Dump(*object, 0).str());
    return result;
  }

  std::vector<std::string> sent() const {
    const std::lock_guard guard(lock_);
    return sent_;
  }

  int result = 0;

 private:
  mutable std::mutex lock_;
  std::vector<std::string> sent_;
};

/// A request as a handler gets it.
inline JSON_RPC_Object_var make_request(const std::string& method, const json_spirit::Value& id,
                                        const json_spirit::Value& params = json_spirit::Value()) {
  auto* const request = new JSON_RPC_Request;
  request->method(method);
  request->id(id);
  request->params() = params;
  return JSON_RPC_Object_var(request);
}
