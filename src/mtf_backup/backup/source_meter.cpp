#include "mtf_backup/backup/source_meter.h"

#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>

#include <chrono>
#include <new>
#include <string>
#include <system_error>

#include "kolt/directory_reader.h"
#include "mtf_backup/run/anchored_dir.h"

namespace MTF_BACKUP {

namespace {

constexpr std::chrono::milliseconds delay(2000);  // in a shorter run nobody reads a percentage

void set_policy(pthread_t thread, int policy) {
  const sched_param none{};
  (void)::pthread_setschedparam(thread, policy, &none);
}

}  // namespace

Source_Meter::Source_Meter(const std::vector<Source>& sources, Run_State& state) : sources_(sources), state_(state) {
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    // Reports then tell what the walk has found so far.
  }
}

Source_Meter::~Source_Meter() {
  {
    std::lock_guard<std::mutex> guard(lock_);
    ending_ = true;
    end_.notify_all();
  }
  if (!thread_.joinable()) return;
  set_policy(thread_.native_handle(), SCHED_OTHER);  // it is waited for
  thread_.join();
}

bool Source_Meter::ended() {
  std::lock_guard<std::mutex> guard(lock_);
  return ending_;
}

void Source_Meter::run() {
  // A percentage is worth only what nobody else has a use for.
  set_policy(::pthread_self(), SCHED_IDLE);
  {
    std::unique_lock<std::mutex> guard(lock_);
    if (end_.wait_for(guard, delay, [this] { return ending_; })) return;
  }
  uint64_t sum = 0;
  try {
    for (const Source& source : sources_)
      if (!add_up(source, sum)) return;
  } catch (const std::bad_alloc&) {
    return;
  }
  state_.expected = sum;
}

bool Source_Meter::add_up(const Source& source, uint64_t& sum) {
  std::vector<std::string> waiting{std::string()};
  Anchored_Dir dir;
  Directory_Reader reader;
  Directory_Entry entry;
  while (!waiting.empty()) {
    const std::string path = std::move(waiting.back());
    waiting.pop_back();
    if (path.size() > max_path_size || !dir.open(source.root.get(), path)) continue;
    dir.enter();
    if (!reader.open(dir.path(""), nullptr, false, 0)) continue;
    while (reader.read(entry)) {
      if (ended()) return false;
      if (S_ISDIR(entry.stat.st_mode))
        waiting.push_back(join_names(path, entry.name));
      else
        sum += static_cast<uint64_t>(entry.stat.st_size);
    }
  }
  return true;
}

}  // namespace MTF_BACKUP
