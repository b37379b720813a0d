#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "kolt/export.h"

/// What connections between agents have in common. Threads: any.
class TESSARIN_API WebSocket_Options {
 public:
  /// How agents know each other where they use TLS. Empty members stand for what a pod finds of its service account.
  struct Identity {
    std::string ca_file;     ///< PEM: who signs their certificates
    std::string name;        ///< what these have to name; empty: the address that is called
    std::string token_file;  ///< whose first line is the token that is shown; read for each call
  };

  static WebSocket_Options* instance();

  /// Whether they use TLS. They don't unless it is set.
  bool ssl() const { return ssl_; }
  void ssl(bool on) { ssl_ = on; }

  Identity identity() const {
    const std::lock_guard guard(lock_);
    return identity_;
  }
  void set_identity(const Identity& identity) {
    const std::lock_guard guard(lock_);
    identity_ = identity;
  }

 private:
  std::atomic<bool> ssl_{false};
  mutable std::mutex lock_;
  Identity identity_;  // guarded by lock_
};
