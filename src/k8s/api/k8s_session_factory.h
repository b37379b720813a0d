#pragma once

#include <memory>
#include <string>

class K8S_Session;

class K8S_Session_Factory {
 public:
  /**
   * Makes a session and reads the token.
   *
   * @param type  "http" or "websocket", exactly.
   * @return null for another type, without a log, and where there is no memory (errno ENOMEM). A session that could not
   * be set up, or has no token, is given all the same: what failed has been logged, and its verbs fail.
   */
  static std::unique_ptr<K8S_Session> create(const std::string& type);
};
