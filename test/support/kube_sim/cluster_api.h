#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/kube_sim/cluster.h"

namespace kube_sim {

/// What an exec request asks for, when it is known to be possible.
struct Exec_Target {
  std::string ns;
  std::string pod;
  std::string container;
  std::vector<std::string> command;
  bool with_input = false;
};

/**
 * A cluster with exec: its REST interface, and upgrades to pods/exec. The handshake is refused as real servers do.
 *
 * Unless told otherwise commands really run on this machine, each container in a directory of its own,
 * `<directory>/<namespace>/<pod>/<container>`. They don't see the paths of a real container: only what is relative.
 * Threads: any.
 */
class Cluster_Api : public Api {
 public:
  typedef std::function<std::unique_ptr<Exec>(const Exec_Target&)> Maker;

  /// @param directory below which commands run.
  Cluster_Api(Cluster& cluster, const std::string& directory);

  /// Lets @a maker serve all further commands. It is called from many threads. Null: commands run again.
  void set_exec(Maker maker);

  Answer answer(const Request& request) override;
  bool watch(const Request& request, Watch_Sink& sink) override;
  std::unique_ptr<Exec> exec(const Request& request, Answer& refusal) override;

 private:
  Cluster& cluster_;
  const std::string directory_;
  std::mutex lock_;
  Maker maker_;  // guarded by lock_
};

}  // namespace kube_sim
