#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "http/http_request.h"
#include "http/http_response.h"

/// Takes the body of an answer as it arrives.
class HTTP_Body_Sink {
 public:
  virtual ~HTTP_Body_Sink() = default;
  virtual void write(std::string_view chunk) = 0;
};

/// How far an exchange came. What may be repeated depends on it.
enum HTTP_Outcome {
  /// A whole answer arrived, whatever its status.
  HTTP_OUTCOME_ANSWERED,
  /// No connection was made, so that nothing of the request was sent.
  HTTP_OUTCOME_NOT_SENT,
  /// The connection was lost after that; the server may or may not have done what was asked.
  HTTP_OUTCOME_BROKEN,
  /// To try again would not help or cost too much: the server's certificate or the CA file is bad, the URI isn't one,
  /// the server was silent for too long, the answer isn't HTTP.
  HTTP_OUTCOME_FAILED
};

struct HTTP_Exchange_Result {
  HTTP_Outcome outcome;
  /// Why there is no answer, for the log. Holds nothing of the request's headers.
  std::string reason;
};

/**
 * One server, and the connections to it that are kept for the next exchange.
 *
 * Threads: belongs to one at a time.
 */
class HTTP_Session {
 public:
  virtual ~HTTP_Session() = default;

  /**
   * Sends @a request once and reads the answer. Logs nothing, follows no redirect.
   *
   * @param body      null: none.
   * @param response  holds status and headers of the answer; status 0 and no headers unless the outcome is
   *                  HTTP_OUTCOME_ANSWERED.
   * @param sink      is given the body, also that of an answer which breaks off in the middle.
   */
  virtual HTTP_Exchange_Result exchange(const HTTP_Request& request, const std::string* body, HTTP_Response& response,
                                        HTTP_Body_Sink& sink) = 0;
};

typedef std::shared_ptr<HTTP_Session> HTTP_Session_var;
