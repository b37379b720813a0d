#pragma once

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"
#include "kolt/export.h"

class JSON_RPC_Params_Handler;

/// Destroys what a factory has made; null does nothing.
typedef void (*JSON_RPC_Handler_Exterminator)(void*);

/**
 * What answers the requests of one method. A direct handler overrides handle_object() and runs on the channel's thread;
 * for one that runs on the pool see JSON_RPC_Thread_Pool_Handler_Impl.
 *
 * Life: made by the factory of a plug-in; init(), any number of handle() at once from several threads, fini(); then
 * destroyed through the JSON_RPC_Handler_Exterminator that the factory handed out.
 *
 * The order of the virtual operations is part of the interface to plug-ins.
 */
class TESSARIN_API JSON_RPC_Handler {
 public:
  /// What handle_object_post() is told of the call that it follows.
  struct Context {
    /// What handle_object() returned.
    int result;
  };

  virtual ~JSON_RPC_Handler();

  /// Gets the words that stand behind the handler's factory in the service configuration. Base: 0. -1 refuses to load.
  virtual int init(int argc, char* argv[]);
  /// Base: 0.
  virtual int fini();

  /**
   * The entry for each message of the method.
   *
   * @param channel  where the answer goes; null or expired once the requester has gone.
   * @param object   the message: a JSON_RPC_Request or a JSON_RPC_Notify.
   * @retval 0       answered, or to be answered later.
   * @retval -1      failed. A request that has got no answer by then never gets one from the handler.
   *
   * Base: handle_object(), then handle_object_post(), on the caller's thread; returns what handle_object() returned.
   */
  virtual int handle(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object);

  /// Does the work of a direct handler. Base: -1.
  virtual int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object);

  /// Called by handle() after handle_object(); @a channel is null if the requester has gone. Base: 0.
  virtual int handle_object_post(const Context& context, JSON_RPC_Channel_var channel, JSON_RPC_Object_var object);

  /// What reads the parameters while the message comes in. Base: null, the parameters become a document.
  virtual JSON_RPC_Params_Handler* create_params_handler();
};
