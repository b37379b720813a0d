#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "client_io/chunk_cipher.h"
#include "client_io/client_io_base.h"
#include "client_io/encrypted_layout.h"

namespace client_io {

/// The reader of Encrypted_Client_IO; the contract is that of Client_IO_Base::Reader.
class Encrypted_Reader : public Client_IO_Base::Reader {
 public:
  /// @param keys, canceled  borrowed, outlive the reader.
  Encrypted_Reader(std::unique_ptr<Reader> next, const Key_Source& keys, const std::string& key,
                   const std::atomic<bool>& canceled);
  ~Encrypted_Reader() override;

  /// Reads the header and the last chunk. False with errno, after one line at LM_ERROR.
  bool begin();

  ssize_t read(uint64_t offset, void* to, size_t n) override;
  uint64_t size() const override { return layout_.plain_size(); }

 private:
  bool check_header(const char* header);
  ssize_t read_cached(uint64_t offset, char* to, size_t n);
  ssize_t read_chunks(uint64_t offset, char* to, size_t n);
  ssize_t take(Chunk_Cipher& cipher, uint64_t number, const char* chunk, size_t skipped, char* to, size_t n);
  bool read_exactly(uint64_t offset, char* to, size_t n);
  bool fail(uint64_t offset, const char* why) const;
  ssize_t no_memory() const;

  const std::unique_ptr<Reader> next_;
  const std::string key_;
  const Key_Source& keys_;
  const std::atomic<bool>& canceled_;
  const Encrypted_Layout layout_;
  Object_Keys object_keys_;

  std::mutex lock_;
  std::string cached_;          // guarded by lock_: a chunk that was read in part
  uint64_t cached_number_ = 0;  // guarded by lock_; meaningful while cached_ is not empty
};

}  // namespace client_io
