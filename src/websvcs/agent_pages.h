#pragma once

#include <mutex>
#include <string>

#include "http/http_server.h"
#include "websvcs/agent_options.h"
#include "websvcs/self_checks.h"

/**
 * What the agent tells of itself over GET, as doc/monitoring.md says: "/healthz", "/readyz", "/metrics" and "/".
 *
 * Life: start(), once the task manager is open; add_to() any server, which ends before this object does; the object
 * ends before the task manager is closed.
 */
class Agent_Pages {
 public:
  Agent_Pages(const Agent_Options& options, const std::string& state_dir);

  /// @retval -1  one line at LM_ERROR.
  int start();
  void add_to(HTTP_Server& server);

 private:
  HTTP_Content health(const HTTP_Page::Caller& caller) const;
  HTTP_Content readiness(const HTTP_Page::Caller& caller) const;
  HTTP_Content metrics();

  Self_Checks node_;
  Self_Checks life_;
  std::mutex scrape_;
};
