#pragma once

#include <memory>
#include <string>

#include "kolt/export.h"

/// A POST that waits for its answer. Threads: any.
class TESSARIN_API HTTP_Exchange {
 public:
  virtual ~HTTP_Exchange();

  /// Answers; the first call counts.
  /// @param body  JSON text, or empty for an answer without a body.
  /// @retval 0    handed to the connection.   @retval -1  answered before, timed out, or the peer has gone.
  virtual int reply(unsigned status, std::string body) = 0;
};

/// The way to the peer of a WebSocket. Threads: any.
class TESSARIN_API WebSocket_Sender {
 public:
  virtual ~WebSocket_Sender();

  /// Queues a text message.
  /// @retval -1  the peer has gone. One that does not read is ended, with one line at LM_ERROR.
  virtual int send(std::string text) = 0;
};

/// What a service makes of the messages of one WebSocket. Called by one thread at a time, and destroyed when the peer
/// goes.
class TESSARIN_API WebSocket_Receiver {
 public:
  virtual ~WebSocket_Receiver();
  virtual void message(std::string text) = 0;
};

/// What an HTTP_Server serves. Called by several threads at once; must not throw.
class TESSARIN_API HTTP_Service {
 public:
  virtual ~HTTP_Service();

  /**
   * A POST has been read.
   *
   * @param exchange  to be answered now or later, by any thread.
   * @return what the server keeps until the exchange ends (answered, timed out or peer gone) and then lets go; may be
   * null.
   */
  virtual std::shared_ptr<void> post(std::string body, std::shared_ptr<HTTP_Exchange> exchange) = 0;

  /// A WebSocket has been opened. Null ends it.
  virtual std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender> sender) = 0;
};
