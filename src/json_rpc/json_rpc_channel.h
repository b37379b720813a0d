#pragma once

#include "ace/Bound_Ptr.h"
#include "ace/Thread_Mutex.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/**
 * The way back to a requester.
 *
 * Handlers get a JSON_RPC_Channel_ptr, since the requester may go away at any time; who answers makes a
 * JSON_RPC_Channel_var of it, which is null once the requester has gone, and holds it as long as the answer is being
 * made.
 *
 * Threads: send() and send_error() may be called from any thread.
 */
class TESSARIN_API JSON_RPC_Channel {
 public:
  virtual ~JSON_RPC_Channel();

  /// @retval 0   taken for sending; that it arrives is not promised.
  /// @retval -1  the requester has gone, has got its answer already, or @a object is null.
  virtual int send(JSON_RPC_Object_var object) = 0;

  /**
   * Sends an error answer.
   *
   * @param id    of the request; null when it is not known.
   * @param data  more about the error; null for none.
   * @return what send() returned; -1 with errno ENOMEM when there is no memory for the answer.
   */
  virtual int send_error(int code, const json_spirit::Value& id, const char* message, const json_spirit::Value& data);
};

typedef ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> JSON_RPC_Channel_ptr;
typedef ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> JSON_RPC_Channel_var;
