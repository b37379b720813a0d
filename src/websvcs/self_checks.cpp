#include "websvcs/self_checks.h"

#include <system_error>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/metrics.h"

namespace {

const char* const not_yet = "has not been looked at yet";

void show(const std::string& check, bool ok) {
  kolt::Gauge("tessarin_check_ok", "Whether a check of the agent on itself is fine.", {{"check", check}}).set(ok);
}

}  // namespace

Self_Checks::Self_Checks(std::vector<Check> checks, std::chrono::milliseconds interval)
    : checks_(std::move(checks)), interval_(interval) {
  for (const Check& check : checks_) {
    results_.push_back({check.name, false, not_yet});
    show(check.name, false);
  }
}

Self_Checks::~Self_Checks() {
  {
    const std::lock_guard guard(lock_);
    ending_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

int Self_Checks::start() {
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& e) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to start the thread of the self-checks: %C\n"), e.what()), -1);
  }
  return 0;
}

std::vector<Self_Checks::Result> Self_Checks::results() const {
  const std::lock_guard guard(lock_);
  return results_;
}

std::chrono::steady_clock::duration Self_Checks::age() const {
  const std::lock_guard guard(lock_);
  return std::chrono::steady_clock::now() - last_run_;
}

void Self_Checks::run() {
  do run_all();
  while (wait());
}

void Self_Checks::run_all() {
  for (size_t i = 0; i < checks_.size(); ++i) note(i, checks_[i].fault());
  const std::lock_guard guard(lock_);
  last_run_ = std::chrono::steady_clock::now();
}

// What has not changed is not told again.
void Self_Checks::note(size_t index, const std::string& fault) {
  Result result{checks_[index].name, fault.empty(), fault};
  Result before;
  {
    const std::lock_guard guard(lock_);
    before = std::exchange(results_[index], result);
  }
  show(result.name, result.ok);
  if (!result.ok && (before.ok || before.reason == not_yet)) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("The check '%C' fails: %C.\n"), result.name.c_str(), fault.c_str()));
  } else if (result.ok && !before.ok && before.reason != not_yet) {
    ACE_DEBUG((LM_INFO, ACE_TEXT("The check '%C' is fine again.\n"), result.name.c_str()));
  }
}

/// @retval false  the object ends.
bool Self_Checks::wait() {
  std::unique_lock guard(lock_);
  return !changed_.wait_for(guard, interval_, [this] { return ending_; });
}
