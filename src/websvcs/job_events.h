#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "json_spirit/json_spirit_value.h"
#include "task/task_record.h"

class K8S_Session;

/// The pod that the agent runs in, as the downward API puts it into the environment.
struct Agent_Pod {
  std::string name;        ///< POD_NAME
  std::string namespace_;  ///< POD_NAMESPACE
  std::string uid;         ///< POD_UID; may be empty
  std::string node;        ///< NODE_NAME; may be empty

  /// Nothing where POD_NAME or POD_NAMESPACE is not set, or is no name of an object.
  static std::optional<Agent_Pod> from_environment();
};

/**
 * Writes an event about the agent's pod when a job begins and when it ends: core/v1, which every server has.
 *
 * A job never waits for it: tell() puts into a queue of at most 100, and a thread sends. What finds the queue full, or
 * cannot be sent, is lost and counted in tessarin_events_total.
 *
 * Life: start() once. The destructor sends what is queued, for some seconds at most. Threads: tell() may be called by
 * any.
 */
class Job_Events {
 public:
  static constexpr size_t max_queued = 100;

  /// Makes a session that is ready for its verbs, or null.
  typedef std::function<std::unique_ptr<K8S_Session>()> Session_Maker;

  Job_Events(Agent_Pod pod, Session_Maker make_session);
  ~Job_Events();
  Job_Events(const Job_Events&) = delete;
  Job_Events& operator=(const Job_Events&) = delete;

  /// @retval -1  the thread cannot be started; one line at LM_ERROR.
  int start();
  /// @param record  of a task that has just begun or ended; others are passed over.
  void tell(const Task_Record& record);

 private:
  void run();
  bool next(json_spirit::Value& event);
  void send(const json_spirit::Value& event);

  const Agent_Pod pod_;
  const Session_Maker make_session_;
  std::unique_ptr<K8S_Session> session_;  // the thread's
  bool refused_ = false;                  // the thread's: a refusal has been told

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<json_spirit::Value> queue_;  // guarded by lock_, as below
  bool ending_ = false;
  std::chrono::steady_clock::time_point last_moment_;  // nothing is sent after it, once ending

  std::thread thread_;
};

/// The event about a task.
json_spirit::Value job_event(const Agent_Pod& pod, const Task_Record& record, int64_t now_milliseconds);
