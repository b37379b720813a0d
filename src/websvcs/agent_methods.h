#pragma once

#include <chrono>
#include <functional>
#include <set>
#include <string>

#include "json_rpc/json_rpc_handler.h"
#include "json_spirit/json_spirit_value.h"

/// A direct handler around a function.
class Agent_Method : public JSON_RPC_Handler {
 public:
  /// Fills in the result. @return false where it fails; the requester then gets JSON_RPC_E_INTERNAL_ERROR.
  typedef std::function<bool(const json_spirit::Value& params, json_spirit::Value& result)> Function;

  explicit Agent_Method(Function function) : function_(std::move(function)) {}

  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override;

 private:
  const Function function_;
};

/// What "agent.info" tells.
struct Agent_Info {
  std::string host_uuid;
  std::string state_dir;
  std::set<std::string> methods;
  std::string plugin;  ///< empty: none
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();

  bool operator()(const json_spirit::Value& params, json_spirit::Value& result) const;
};

/// "agent.tasks": the tasks of the task manager, newest first; with a string `id` in params that one alone, with a
/// number `limit` at most so many.
bool agent_tasks(const json_spirit::Value& params, json_spirit::Value& result);
