#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "mtf/core/error_code.h"

namespace MTF_BACKUP {

/// What the threads of one run tell each other: whether to stop and why, and how far the run has got. Threads: any.
class Run_State {
 public:
  /// Whether all work is to end as soon as it can.
  bool stopping() const { return stopping_.load(std::memory_order_relaxed); }

  /// Ends the run, which has failed in a way that spoils all of it; the first code counts. The caller has logged why.
  void fail(MTF::Error_Code code) {
    int none = MTF::E_OK;
    code_.compare_exchange_strong(none, code);
    stopping_ = true;
  }
  /// Ends the run on request.
  void cancel() {
    canceled_ = true;
    fail(MTF::E_FAILED);
  }
  bool canceled() const { return canceled_; }

  /// E_OK, or why the run ends early.
  MTF::Error_Code code() const { return static_cast<MTF::Error_Code>(code_.load()); }

  std::atomic<uint64_t> total{0};      ///< bytes to do, as far as the run itself has seen them
  std::atomic<uint64_t> expected{0};   ///< bytes to do as counted beforehand; 0: not known
  std::atomic<uint64_t> processed{0};  ///< bytes done
  std::atomic<uint64_t> files{0};      ///< entries moved that are no directories

 private:
  std::atomic<bool> stopping_{false};
  std::atomic<bool> canceled_{false};
  std::atomic<int> code_{MTF::E_OK};
};

/// Whether an error says that the process has run out of something, so that going on with the next file is no use.
inline bool is_resource_error(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

/// Whether an error says that an entry is no longer where it was, or a link now stands on the way to it.
inline bool is_gone(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

}  // namespace MTF_BACKUP
