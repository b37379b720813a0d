#pragma once

#include <atomic>

#include "kolt/export.h"

/// What connections between agents have in common. Threads: any.
class TESSARIN_API WebSocket_Options {
 public:
  static WebSocket_Options* instance();

  /// Whether they use TLS. They don't unless it is set.
  bool ssl() const { return ssl_; }
  void ssl(bool on) { ssl_ = on; }

 private:
  std::atomic<bool> ssl_{false};
};
