#pragma once

#include "http/http_session.h"
#include "json_spirit/json_spirit_value.h"

/**
 * HTTP with JSON bodies: makes the text of what is sent, reads what comes back while it arrives, and repeats what may
 * be repeated.
 *
 * Adds "Accept: application/json", and "Content-Type: application/json" to a body unless the request has another one.
 * No redirect is followed: the 3xx is the reply.
 *
 * When a request is sent again (at most `retries` times, none later than `retry_timeout` seconds after the start, the
 * waits included; through kolt::clock()):
 *
 * | What happened | GET, DELETE | POST, PATCH |
 * |---|---|---|
 * | no connection: refused, not in time, TLS broke off | after a back-off | after a back-off |
 * | certificate or CA file refused | never | never |
 * | connection lost later: reset, closed, the body cut in the middle | after a back-off | never |
 * | silence for longer than the time-out, or what is no HTTP | never | never |
 * | status 429 | after Retry-After, 1 second if absent | the same |
 * | status 500, 502, 503, 504 with Retry-After | after that | never |
 * | any other answer | never | never |
 *
 * The back-off is 250 ms, doubled each time, of which a random half is taken off. Retry-After is a number of seconds or
 * a date. A wait that would end after `retry_timeout` isn't begun: what there is by then is the result.
 *
 * Log lines: each repeat at LM_INFO; an exchange that failed for good at LM_ERROR, once, with method, path (never the
 * query) and reason; the beginning of a reply that nobody reads or that isn't JSON at LM_DEBUG; a Warning header at
 * LM_INFO, each text once in the process.
 *
 * Threads: belongs to one at a time.
 */
class TESSARIN_API JSON_HTTP_Session {
 public:
  JSON_HTTP_Session(HTTP_Session_var session, int retries, int retry_timeout, int flags = 0);

  void reset(HTTP_Session_var session) { session_ = std::move(session); }
  /// Whether it holds a session. Without one every verb fails.
  explicit operator bool() const { return static_cast<bool>(session_); }

  /**
   * @retval true   a reply with a JSON body came, whatever its status; it stands in @a value.
   * @retval false  otherwise. @a value is null; the status is 0 if the exchange failed, or that of the reply that isn't
   * JSON.
   */
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value& value);

  /**
   * @param body   null: none.
   * @param reply  null: the reply's body is dropped. Otherwise it holds the reply's JSON, or null where that isn't
   * JSON.
   * @retval true   a reply came, whatever its status.
   * @retval false  the exchange failed; the status is 0 and @a reply null.
   */
  bool post(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response, json_spirit::Value* reply);
  bool patch(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response, json_spirit::Value* reply);
  bool delete_(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* reply);

 private:
  enum class Result { FAILED, TEXT, JSON };

  Result send(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
              json_spirit::Value* reply);

  HTTP_Session_var session_;
  int retries_;
  int retry_timeout_;
  [[maybe_unused]] int flags_;
};
