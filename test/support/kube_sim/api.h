#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "support/kube_sim/answer.h"
#include "support/kube_sim/request.h"

namespace kube_sim {

/// The client's side of a watch, used by the one thread that called `Api::watch`.
class Watch_Sink {
 public:
  virtual ~Watch_Sink();
  /// Sends the head of the answer (200, JSON, chunked). Called once, before the others, as soon as the request is known
  /// to be a watch that is not refused. False when the client has gone.
  virtual bool start() = 0;
  /// Sends @a text, one or more whole lines with their line ends, at once. False when the client has gone or the front
  /// stops.
  virtual bool send(std::string_view text) = 0;
  /// Whether it makes sense to go on: false when the client has gone or the front stops. Ask at least every 100 ms
  /// while there is nothing to send; it does not block.
  virtual bool open() = 0;
};

/// The client's side of an exec connection, used by the one thread that called `Exec::run`.
class Exec_Stream {
 public:
  virtual ~Exec_Stream();
  /// The sub-protocol agreed on; empty where the client asked for none.
  virtual const std::string& protocol() const = 0;
  /// One frame: @a channel (1 output, 2 error output, 3 status) and its payload, in the form of the protocol.
  /// All senders: false when the client has gone or the front stops.
  virtual bool send(unsigned char channel, std::string_view payload) = 0;
  /// One frame whose payload is @a payload as it stands, with the opcode text or binary.
  virtual bool send_raw(std::string_view payload, bool text) = 0;
  virtual bool ping() = 0;
  /// Waits at most @a patience for a frame of the client; @a frame is its payload, the channel byte first.
  /// False when there was none in that time, or there will be none any more (see `open`).
  virtual bool receive(std::string& frame, std::chrono::milliseconds patience) = 0;
  /// False when the client has gone, has closed, or the front stops.
  virtual bool open() = 0;
  /// Sends a close frame and waits shortly for the client's.
  virtual void close(unsigned short code, std::string_view reason) = 0;
  /// Ends the connection without a close frame.
  virtual void drop() = 0;
};

/// A command that was started for one exec connection.
class Exec {
 public:
  virtual ~Exec();
  /// Serves the connection, in its thread. The stream is closed with 1000 behind it where this did not end it.
  /// Returns soon once `stream.open()` is false.
  virtual void run(Exec_Stream& stream) = 0;
};

/**
 * What a `Front` serves.
 *
 * Threads: called by many at a time. It must outlive the fronts that serve it.
 */
class Api {
 public:
  virtual ~Api();
  virtual Answer answer(const Request& request) = 0;
  /// Asked first for a GET with the query parameter watch=true or watch=1. False, with nothing sent, when this is not
  /// served as a watch: then `answer` is asked. Otherwise returns true at the end of the watch.
  virtual bool watch(const Request& request, Watch_Sink& sink);
  /// Asked for each WebSocket upgrade, before it is agreed to. Null, with @a refusal filled in, to refuse it; the
  /// refusal is 404 "404 page not found" when left alone.
  virtual std::unique_ptr<Exec> exec(const Request& request, Answer& refusal);
};

}  // namespace kube_sim
