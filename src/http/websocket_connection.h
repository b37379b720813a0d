#pragma once

#include <sys/types.h>

#include <cstddef>

#include "http/http_request.h"
#include "http/http_sock_state.h"

class ACE_Time_Value;

/**
 * The client's end of a WebSocket that is read from: connect(), handshake(), receive() until it gives 0 or less,
 * close().
 *
 * Each failure is logged at LM_ERROR where it happens, and leaves the state at HTTP_SOCK_STATE_CLOSED. Threads: belongs
 * to one at a time; it has none of its own.
 */
class WebSocket_Connection {
 public:
  virtual ~WebSocket_Connection() = default;

  /// Sets after how many seconds without any traffic, pongs included, the connection counts as dead. A ping is sent
  /// every 30 seconds while receive() waits. 0: never.
  virtual void configure(int idle_seconds) = 0;

  /// The opening handshake: URI, headers, among them "Sec-WebSocket-Protocol". To be filled before handshake().
  virtual HTTP_Request& request() = 0;

  /// Connects and, with TLS, verifies the server.   @retval -1 failed.
  virtual int connect() = 0;

  /// Sends the request, and switches to WebSocket if the server does and takes the sub-protocol that was asked for. The
  /// log line of a refusal holds its status and the beginning of its body.   @retval -1 failed.
  virtual int handshake() = 0;

  /// HTTP_SOCK_STATE_CLOSED before connect(), HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED from handshake() until the end.
  virtual HTTP_SOCK_State state() const = 0;

  /**
   * Waits for the next message, of one or more fragments.
   *
   * @param data, length  the message. Valid until the next call.
   * @param opcode        1 for text, 2 for binary.
   * @param timeout       how long to wait for a message; other frames don't prolong it. Null: as long as the connection
   *                      lives.
   * @return the length of the message (one byte more than its payload where the protocol has a channel byte); 0 when
   *         the server has closed the WebSocket; -1 on failure: nothing in time, the connection lost without a close
   *         frame, a message too long. An empty message is passed over.
   */
  virtual ssize_t receive(const char*& data, std::size_t& length, unsigned char& opcode,
                          const ACE_Time_Value* timeout) = 0;

  /// Ends the WebSocket and the connection, within few seconds, in whatever state it is. The state is
  /// HTTP_SOCK_STATE_CLOSED then.
  virtual void close() = 0;
};
