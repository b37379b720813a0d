#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client_io/chunk_cipher.h"
#include "client_io/client_io_base.h"

namespace client_io {

/// The writer of Encrypted_Client_IO; the contract is that of Client_IO_Base::Writer.
class Encrypted_Writer : public Client_IO_Base::Writer {
 public:
  /// @param keys, canceled  borrowed, outlive the writer.
  Encrypted_Writer(std::unique_ptr<Writer> next, const Key_Source& keys, const std::string& key,
                   const std::atomic<bool>& canceled);
  ~Encrypted_Writer() override;

  /// Writes the header. False with errno, after one line at LM_ERROR.
  bool begin();

  bool write(const void* data, size_t n) override;
  bool commit() override;
  uint64_t size() const override { return size_; }

 private:
  bool take(const char* data, size_t n);
  bool put_chunk(const char* plain, size_t n, bool last);
  bool is_usable();
  bool fail_here();
  bool failed();

  const std::unique_ptr<Writer> next_;
  const std::string key_;
  const Key_Source& keys_;
  const std::atomic<bool>& canceled_;
  Chunk_Cipher cipher_;
  std::unique_ptr<char[]> waiting_;  // plain bytes of a chunk that may yet be the last one
  size_t waiting_size_ = 0;
  std::unique_ptr<char[]> stored_;
  uint64_t chunks_ = 0;
  uint64_t size_ = 0;
  int error_ = 0;  // the first failure
};

}  // namespace client_io
