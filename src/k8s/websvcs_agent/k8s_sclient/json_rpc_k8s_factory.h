#pragma once

#include <cerrno>
#include <new>

#include "json_rpc/json_rpc_handler.h"

/**
 * Defines `_make_<Handler>`, by which the agent makes a handler, and the destroyer that it hands back.
 *
 * The factory returns null with errno ENOMEM if there is no memory. The agent may pass no place for the destroyer. The
 * factories are all that the plug-in exports.
 */
#define K8S_SCLIENT_FACTORY_DEFINE(Handler)                                   \
  static void _gobble_##Handler(void* handler) {                              \
    delete static_cast<JSON_RPC_Handler*>(handler);                           \
  }                                                                           \
                                                                              \
  extern "C" __attribute__((visibility("default")))                           \
  JSON_RPC_Handler* _make_##Handler(JSON_RPC_Handler_Exterminator* gobbler) { \
    if (gobbler != nullptr) *gobbler = _gobble_##Handler;                     \
    JSON_RPC_Handler* handler = new (std::nothrow) Handler;                   \
    if (handler == nullptr) errno = ENOMEM;                                   \
    return handler;                                                           \
  }
