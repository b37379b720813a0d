#pragma once

#include <memory>

#include "http/http_server.h"
#include "json_rpc/json_rpc_service.h"
#include "websvcs/agent_methods.h"
#include "websvcs/agent_options.h"
#include "websvcs/agent_pages.h"
#include "websvcs/job_events.h"
#include "websvcs/leftovers.h"
#include "websvcs/state_dir.h"

/**
 * The agent's process put together: state directory, task manager, JSON-RPC pool, methods from the service
 * configuration, and the channel.
 *
 * Life: open(), run(), close(), once each and in one thread; close() also after an open() that failed. One per process.
 */
class Agent {
 public:
  /// The path of the JSON-RPC channel.
  static constexpr const char* channel_path = "/d2/jr";

  explicit Agent(const Agent_Options& options) : options_(options) {}

  /// @retval -1  one line at LM_ERROR told why.
  int open();
  /// Comes back on SIGTERM or SIGINT; the caller has blocked these and SIGHUP in all threads.
  void run();
  /// Lets no one in any more, cancels the running job and waits for its end, unloads the plug-in.
  void close();

 private:
  int open_channel();
  int open_events();
  int listen();
  int load_methods();
  int bind_own_methods();

  const Agent_Options options_;
  State_Dir state_;
  Leftovers leftovers_;
  std::unique_ptr<Agent_Method> info_;
  std::unique_ptr<Agent_Method> tasks_;
  bool services_open_ = false;
  std::unique_ptr<JSON_RPC_Service> service_;
  std::unique_ptr<Job_Events> events_;
  std::unique_ptr<Agent_Pages> pages_;
  std::unique_ptr<HTTP_Server> server_;
};
