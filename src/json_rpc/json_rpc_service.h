#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "http/http_service.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "kolt/export.h"

/**
 * JSON-RPC 2.0 over HTTP POST and WebSocket: what an HTTP_Server serves as the agent's channel.
 *
 * A POST carries one message or one batch. It is answered with status 200 and the answer or array of answers, errors of
 * JSON-RPC included, or with 204 when there is nothing to answer. A WebSocket carries a message or batch in each text,
 * and the answers come in the order in which they are made.
 *
 * Handlers get a channel per request; it expires when the request is answered, when its time is over (HTTP) or when the
 * peer goes.
 */
class TESSARIN_API JSON_RPC_Service : public HTTP_Service {
 public:
  struct Options {
    size_t max_batch = 100;  ///< messages in a batch
    size_t max_open = 1000;  ///< texts of one WebSocket that wait for answers; further ones are refused with -32000
  };

  JSON_RPC_Service(const JSON_RPC_Dispatcher& dispatcher, const Options& options)
      : dispatcher_(dispatcher), options_(options) {}

  std::shared_ptr<void> post(std::string body, std::shared_ptr<HTTP_Exchange> exchange) override;
  std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender> sender) override;

 private:
  const JSON_RPC_Dispatcher& dispatcher_;
  const Options options_;
};
