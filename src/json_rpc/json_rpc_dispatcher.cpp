#include "json_rpc/json_rpc_dispatcher.h"

#include <mutex>

#include "ace/Log_Msg.h"
#include "ace/Singleton.h"
#include "json_rpc/json_rpc_error_code.h"

typedef ACE_Unmanaged_Singleton<JSON_RPC_Dispatcher, ACE_Thread_Mutex> Dispatcher_Singleton;

namespace {

int call(JSON_RPC_Handler& handler, const JSON_RPC_Channel_var& channel, const JSON_RPC_Object_var& message,
         const std::string& method) {
  try {
    return handler.handle(JSON_RPC_Channel_ptr(channel), message);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Exception in the handler of '%C': %C\n"), method.c_str(), e.what()));
  } catch (...) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unknown exception in the handler of '%C'.\n"), method.c_str()));
  }
  return -1;
}

}  // namespace

JSON_RPC_Dispatcher* JSON_RPC_Dispatcher::instance() {
  return Dispatcher_Singleton::instance();
}

void JSON_RPC_Dispatcher::close_instance() {
  Dispatcher_Singleton::close();
}

int JSON_RPC_Dispatcher::bind(const std::string& method, JSON_RPC_Handler* handler, const std::string& origin) {
  const std::lock_guard guard(lock_);
  if (method.empty() || !bindings_.emplace(method, Binding{handler, origin}).second) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to bind method '%C': %C.\n"), method.c_str(),
                      method.empty() ? "it has no name" : "it is bound already"),
                     -1);
  }
  return 0;
}

void JSON_RPC_Dispatcher::unbind(const std::string& method) {
  const std::lock_guard guard(lock_);
  bindings_.erase(method);
}

std::vector<std::string> JSON_RPC_Dispatcher::methods() const {
  const std::shared_lock guard(lock_);
  std::vector<std::string> names;
  for (const auto& [name, binding] : bindings_) names.push_back(name);
  return names;
}

std::set<std::string> JSON_RPC_Dispatcher::origins() const {
  const std::shared_lock guard(lock_);
  std::set<std::string> origins;
  for (const auto& [name, binding] : bindings_) {
    if (!binding.origin.empty()) origins.insert(binding.origin);
  }
  return origins;
}

void JSON_RPC_Dispatcher::dispatch(const JSON_RPC_Channel_var& channel, const JSON_RPC_Object_var& message) const {
  const auto& request = static_cast<const JSON_RPC_Request_Base&>(*message);
  const auto refuse = [&](int code, const char* text) {
    if (request.is_request()) channel->send_error(code, request.id(), text, json_spirit::Value::null);
  };
  const std::shared_lock guard(lock_);
  const auto binding = bindings_.find(request.method());
  if (binding == bindings_.end()) {
    refuse(JSON_RPC_E_METHOD_NOT_FOUND, "Method not found.");
  } else if (call(*binding->second.handler, channel, message, request.method()) == -1) {
    refuse(JSON_RPC_E_INTERNAL_ERROR, "Internal error.");  // the channel passes over a second answer
  }
}
