// A text from a peer of the JSON-RPC channel: whatever it is, it gets at most one answer, and that is JSON.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "json_rpc/json_rpc_exchange.h"
#include "json_spirit/json_spirit_helper.h"

namespace {

/// Answers with the params.
class Echo : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(sender);
    const JSON_RPC_Request* const request = JSON_RPC_Request::narrow(object.get());
    if (!request) return 0;
    auto* const response = new JSON_RPC_Response(request);
    response->result() = request->params();
    return channel->send(JSON_RPC_Object_var(response));
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Echo echo;
  JSON_RPC_Dispatcher dispatcher;
  dispatcher.bind("echo", &echo);
  int answers = 0;
  const auto exchange = std::make_shared<JSON_RPC_Exchange>(dispatcher, 100, [&answers](std::string answer) {
    json_spirit::Value value;
    if (!answer.empty() && !json_spirit::loads_json(std::string_view(answer), value)) std::abort();
    ++answers;
    return 0;
  });
  exchange->serve(std::string_view(reinterpret_cast<const char*>(data), size));
  if (answers != 1) std::abort();
  return 0;
}
