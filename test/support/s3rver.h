#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace test_support {

/**
 * The S3 service "s3rver" as a process of its own, with an empty bucket "bucket" in a directory that goes with it.
 * Keys: "S3RVER" and "S3RVER".
 *
 * It is written by others, and so tells whether the driver speaks S3 and not only what we take for it. It doesn't check
 * signatures of version 4, lists no uploads, and knows no conditions: that is seen against Fake_S3.
 */
class S3rver {
 public:
  /// Why there is none here; empty where there is one.
  static std::string missing();

  /// @param more  arguments beside those that are always given.
  explicit S3rver(const std::vector<std::string>& more = {});
  ~S3rver();
  S3rver(const S3rver&) = delete;
  S3rver& operator=(const S3rver&) = delete;

  int port() const { return port_; }
  std::string endpoint() const { return "http://127.0.0.1:" + std::to_string(port_); }

 private:
  const Temp_Dir dir_;
  pid_t process_ = -1;
  int port_ = 0;
};

}  // namespace test_support
