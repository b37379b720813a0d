#pragma once

#include <atomic>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/s3_object.h"

namespace client_io {

/// The reader of the "s3://" driver; the contract is that of Client_IO_Base::Reader.
class S3_Reader : public Client_IO_Base::Reader {
 public:
  /// @param session  borrowed.
  S3_Reader(S3_Session& session, const std::string& key) : session_(session), key_(key) {}

  /// Asks for the object. False with errno and reason(), not logged.
  [[nodiscard]] bool begin();
  const std::string& reason() const { return reason_; }

  ssize_t read(uint64_t offset, void* to, size_t n) override;
  uint64_t size() const override { return head_.size; }

 private:
  bool get(uint64_t offset, char* to, size_t n, std::string& reason) const;

  S3_Session& session_;
  const std::string key_;
  const std::atomic<bool> stop_{false};  // only the session stops it
  S3_Object_Head head_;
  std::string whole_;  // the bytes of a small object
  std::string reason_;
};

}  // namespace client_io
