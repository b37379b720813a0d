#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_spirit/json_spirit_value.h"

/**
 * One text from a peer, a single message or a batch, on its way to the handlers, and their answers on the way back.
 *
 * It holds the channel of each of its requests: when it is let go, because all is answered or the peer has gone, the
 * channels expire and later answers are refused.
 *
 * Threads: serve() once; answers come from any thread.
 */
class JSON_RPC_Exchange : public std::enable_shared_from_this<JSON_RPC_Exchange> {
 public:
  /// Gets the text of the answer, when there is nothing more to wait for; empty when there is nothing to answer,
  /// because all were notifications. @return 0, or -1 if the peer has gone.
  typedef std::function<int(std::string)> Done;

  /// @param max_batch  messages in a batch; a longer one is refused as a whole.
  JSON_RPC_Exchange(const JSON_RPC_Dispatcher& dispatcher, size_t max_batch, Done done);
  JSON_RPC_Exchange(const JSON_RPC_Exchange&) = delete;
  JSON_RPC_Exchange& operator=(const JSON_RPC_Exchange&) = delete;

  /// Has all messages in @a text handled. Done may be called before it returns.
  void serve(std::string_view text);

  /// Adds an answer. @return what Done returned, if this was the last; otherwise 0.
  int answer(const JSON_RPC_Object& object);

 private:
  void serve_batch(json_spirit::Array& batch);
  void serve_message(json_spirit::Value&& document);
  void refuse(int code, const char* message);
  JSON_RPC_Channel_var open_call();
  void hold();
  int settle(const std::string& text);

  const JSON_RPC_Dispatcher& dispatcher_;
  const size_t max_batch_;
  bool is_batch_ = false;

  std::mutex lock_;
  Done done_;                                // guarded by lock_, as all below
  std::vector<JSON_RPC_Channel_var> calls_;  // not answered all
  size_t open_ = 0;                          // messages not settled, and one for a batch that is still being read
  std::string answers_;                      // joined by commas
};
