#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/s3_object.h"
#include "client_io/s3_upload.h"

namespace client_io {

/// The writer of the "s3://" driver; the contract is that of Client_IO_Base::Writer. An object of one part at most is
/// one request, sent by commit(); a larger one is a multipart upload.
class S3_Writer : public Client_IO_Base::Writer {
 public:
  /// @param session  borrowed.
  S3_Writer(S3_Session& session, const std::string& key);
  ~S3_Writer() override;

  bool write(const void* data, size_t n) override;
  bool commit() override;
  uint64_t size() const override { return size_; }

 private:
  bool may_go_on();
  bool put(const char* data, size_t n);
  bool make_room();
  bool send_part();
  bool is_free();
  bool publish();
  bool put_whole();
  bool fail(const char* operation);
  void discard();

  S3_Session& session_;
  const std::string key_;
  const S3_New_Object object_;
  uint64_t size_ = 0;
  S3_Part part_;
  size_t room_ = 0;     // of part_
  int error_ = 0;       // the first failure, or EINVAL after the end
  bool asked_ = false;  // for the object to become visible
  bool ended_ = false;  // committed, or nothing of it remains
  std::string reason_;
  std::atomic<bool> stop_{false};
  std::unique_ptr<S3_Upload> upload_;
};

}  // namespace client_io
