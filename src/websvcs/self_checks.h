#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// One thing that has to be in order for the agent to do its work.
struct Check {
  std::string name;
  /// Looks, and tells what is wrong; empty: nothing. May wait; must not throw.
  std::function<std::string()> fault;
};

/**
 * Runs checks again and again on a thread of its own, so that who asks for the results never waits for a check.
 *
 * A check that begins to fail is one line at LM_WARNING, one that is well again one at LM_INFO. Each has the gauge
 * tessarin_check_ok with its name.
 *
 * Life: start() once; the destructor waits for the check that runs. Threads: results() and age() may be called by any.
 */
class Self_Checks {
 public:
  struct Result {
    std::string name;
    bool ok;
    std::string reason;  ///< empty when ok
  };

  Self_Checks(std::vector<Check> checks, std::chrono::milliseconds interval);
  ~Self_Checks();
  Self_Checks(const Self_Checks&) = delete;
  Self_Checks& operator=(const Self_Checks&) = delete;

  /// @retval -1  the thread cannot be started; one line at LM_ERROR.
  int start();

  /// In the order of the checks. One that has not run yet is not ok.
  std::vector<Result> results() const;
  /// Since all checks were run last, or since the object was made.
  std::chrono::steady_clock::duration age() const;

 private:
  void run();
  void run_all();
  void note(size_t index, const std::string& fault);
  bool wait();

  const std::vector<Check> checks_;
  const std::chrono::milliseconds interval_;

  mutable std::mutex lock_;
  std::condition_variable changed_;
  bool ending_ = false;  // guarded by lock_, as all below
  std::vector<Result> results_;
  std::chrono::steady_clock::time_point last_run_ = std::chrono::steady_clock::now();

  std::thread thread_;
};
