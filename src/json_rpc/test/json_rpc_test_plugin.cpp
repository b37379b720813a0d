// A plug-in for the tests of JSON_RPC_Method.

#include <new>
#include <string>

#include "json_rpc/json_rpc_handler.h"

namespace {

/// Answers with the words that init() got; refuses to start with the word "refuse".
class Words_Handler : public JSON_RPC_Handler {
 public:
  int init(int argc, char* argv[]) override {
    for (int i = 0; i < argc; ++i) words_ += std::string("[") + argv[i] + "]";
    return words_ == "[refuse]" ? -1 : 0;
  }
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(sender);
    auto* const response = new JSON_RPC_Response(JSON_RPC_Request::narrow(object.get()));
    response->result() = json_spirit::Value(words_);
    return channel->send(JSON_RPC_Object_var(response));
  }

 private:
  std::string words_;
};

int living = 0;

void gobble(void* handler) {
  if (!handler) return;
  delete static_cast<JSON_RPC_Handler*>(handler);
  --living;
}

}  // namespace

extern "C" {

TESSARIN_API JSON_RPC_Handler* _make_Words_Handler(JSON_RPC_Handler_Exterminator* gobbler) {
  if (gobbler) *gobbler = gobble;
  ++living;
  return new (std::nothrow) Words_Handler;
}

TESSARIN_API JSON_RPC_Handler* _make_No_Handler(JSON_RPC_Handler_Exterminator* gobbler) {
  if (gobbler) *gobbler = gobble;
  return nullptr;
}

TESSARIN_API int living_handlers() {
  return living;
}
}
