#pragma once

#include <ostream>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_websocket_session.h"

namespace ctl {

/// One exec request whose output is passed on as it comes.
class Exec_Session : public K8S_WebSocket_Session {
 public:
  /**
   * Runs the command and waits for its end. Called once.
   *
   * @param url     path and query of the exec request, encoded.
   * @param status  the server's word on how the command ended; null if it said none.
   * @retval false  there was no exchange, or it broke; the cause is in the log.
   */
  bool run(const std::string& url, std::ostream& out, std::ostream& err, json_spirit::Value& status);
};

}  // namespace ctl
