#pragma once

#include <map>
#include <set>
#include <shared_mutex>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_object.h"
#include "kolt/export.h"

/// Which handler answers which method. Threads: all operations may be called from any thread, but not by a handler.
class TESSARIN_API JSON_RPC_Dispatcher {
 public:
  /// The dispatcher of the process, made on first use.
  static JSON_RPC_Dispatcher* instance();
  /// Destroys it; the next instance() makes a new one.
  static void close_instance();

  /// @param handler  borrowed until unbind().
  /// @param origin   the plug-in that it comes from; empty: the program itself.
  /// @retval -1      the method is bound already, or its name is empty; one line at LM_ERROR.
  int bind(const std::string& method, JSON_RPC_Handler* handler, const std::string& origin = std::string());

  /// When it returns, no thread is in handle() of what was bound; a pooled handler may still have messages in the
  /// queue. A name that is not bound is passed over.
  void unbind(const std::string& method);

  /// In byte order.
  std::vector<std::string> methods() const;
  /// The plug-ins that methods come from, in byte order.
  std::set<std::string> origins() const;

  /**
   * Has a message handled on the calling thread. A request that its handler fails or throws on, without having answered
   * it, is answered with JSON_RPC_E_INTERNAL_ERROR; one whose method is not bound with JSON_RPC_E_METHOD_NOT_FOUND.
   *
   * @param message  a JSON_RPC_Request or JSON_RPC_Notify.
   */
  void dispatch(const JSON_RPC_Channel_var& channel, const JSON_RPC_Object_var& message) const;

 private:
  struct Binding {
    JSON_RPC_Handler* handler;
    std::string origin;
  };

  mutable std::shared_mutex lock_;  // held shared while a handler is called
  std::map<std::string, Binding> bindings_;
};
