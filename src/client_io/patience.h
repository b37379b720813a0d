#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

#include "kolt/export.h"

namespace client_io {

/**
 * Tries again what failed for a reason that may pass, after longer and longer waits with jitter, while less than a
 * bound of time has gone since it first failed. Once it has waited in vain it waits no more: then the storage is gone,
 * or one part of it is broken, and waiting for each part anew would take for ever.
 *
 * Log: at LM_WARNING one line when the waits begin and one when things work again; at LM_ERROR, once at the end, what
 * the last failure was. Waits are those of kolt::clock(). Threads: any.
 */
class TESSARIN_API Patience {
 public:
  enum Kind {
    READING,
    WRITING  ///< here EIO does not pass: a disk that failed to write is none to keep a backup on
  };

  /// @param seconds  0: nothing is tried again.
  explicit Patience(size_t seconds);

  /// Calls @a attempt, which gives false with errno, until it gives true, cancel() was called (errno ECANCELED, no
  /// line), or its failure is final (then with its errno).
  [[nodiscard]] bool run(Kind kind, const std::function<bool()>& attempt);

  /// Ends all waits within a second, and those to come.
  void cancel() { canceled_ = true; }

 private:
  bool wait(std::optional<std::chrono::milliseconds> span);
  void tell_away(const std::string& line, int error);
  void tell_back();

  const time_t seconds_;
  std::atomic<bool> canceled_{false};
  std::atomic<bool> in_vain_{false};
  std::atomic<time_t> away_since_{0};  // 0: it works
};

/// Whether a failure may pass.
TESSARIN_API bool may_pass(int error, Patience::Kind kind);

}  // namespace client_io
