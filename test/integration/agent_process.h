#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "ctl/agent.h"
#include "json_spirit/json_spirit_value.h"

namespace test_support {

/**
 * A tessarin-agent of its own, with its state below a directory of the test, called over its unix socket.
 *
 * Life: start(), then calls, then terminate() or kill(); start() again goes on with the same state.
 */
class Agent_Process {
 public:
  /// @param options  of the command line, beside the state directory.
  /// @param before   a program, with its arguments, that runs the agent.
  explicit Agent_Process(const std::string& state_dir, std::vector<std::string> options = {},
                         std::vector<std::string> before = {})
      : state_dir_(state_dir), options_(std::move(options)), before_(std::move(before)) {}
  ~Agent_Process();

  /// Runs the program and waits until it answers. False when it ended or did not answer within 30 seconds.
  bool start();
  /// SIGTERM, and the exit code; -1 when it did not end within 30 seconds or died of a signal.
  int terminate();
  /// SIGKILL; returns when the process is gone.
  void kill();

  json_spirit::Value call(const std::string& method, const json_spirit::Object& params);
  /// A page of the agent.
  ctl::Agent::Page get(const std::string& path) { return client_->get(path); }
  /// Submits a job and returns its id.
  std::string submit(const std::string& method, const json_spirit::Object& params);
  /// The task as "agent.tasks" tells it.
  json_spirit::Object task(const std::string& id);
  /// Waits until the job has ended, at most two minutes; its state.
  std::string wait(const std::string& id);

  const std::string& state_dir() const { return state_dir_; }
  /// Of the running process.
  pid_t pid() const { return pid_; }
  std::string log() const;

 private:
  std::string log_path() const { return state_dir_ + ".log"; }

  const std::string state_dir_;
  std::vector<std::string> options_;
  std::vector<std::string> before_;
  pid_t pid_ = -1;
  std::unique_ptr<ctl::Agent> client_;
};

/// The `params` of a backup of @a volumes ("name" and directory) into the pool, as a requester writes them.
json_spirit::Object backup_params(const std::string& pool_dir, const json_spirit::Object& volumes, int seq,
                                  int compression);
/// The `params` of a restore of @a volumes ("name" and target directory).
json_spirit::Object restore_params(const std::string& pool_dir, const json_spirit::Object& volumes, int seq,
                                   unsigned long long total_size);

/// What is mounted below the agent's private directory.
std::vector<std::string> private_mounts();

}  // namespace test_support
