#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <vector>

#include "support/kube_sim/fault_script.h"
#include "support/kube_sim/front.h"

namespace kube_sim {

/// What the connections of a front share. Threads: any.
class Front_State {
 public:
  Front_State(Api& api, const Front_Options& options) : api_(api), options_(options) {}

  Api& api() { return api_; }
  const Front_Options& options() const { return options_; }

  /// Stores the request and tells the fault that it meets.
  Fault record(const Request& request);
  /// False when the front stopped meanwhile.
  bool pause(std::chrono::milliseconds time);
  bool stopping() const;

  /// A socket that `stop` has to shut down. False when the front stops already. `remove` comes before the socket is
  /// closed.
  bool add(int socket);
  void remove(int socket);
  void handshake_done(int socket);
  void stop();

  std::vector<Request> requests() const;
  void clear_requests();
  size_t connections() const;
  size_t open_connections() const;
  void fail(const Match& match, const Fault& fault);
  void clear_faults();
  size_t faults_hit() const;

 private:
  Api& api_;
  const Front_Options options_;

  mutable std::mutex lock_;
  std::condition_variable stopped_;
  // All of these are guarded by lock_.
  bool stopping_ = false;
  std::set<int> sockets_;
  std::set<int> encrypted_;
  size_t connections_ = 0;
  std::vector<Request> requests_;
  Fault_Script faults_;
};

}  // namespace kube_sim
