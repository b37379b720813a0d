#include "client_io/encrypted_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "ace/Log_Msg.h"
#include "client_io/encrypted_layout.h"
#include "kolt/printable.h"

namespace client_io {

Encrypted_Writer::Encrypted_Writer(std::unique_ptr<Writer> next, const Key_Source& keys, const std::string& key,
                                   const std::atomic<bool>& canceled)
    : next_(std::move(next)), key_(key), keys_(keys), canceled_(canceled), cipher_(keys, Chunk_Cipher::SEAL) {}

Encrypted_Writer::~Encrypted_Writer() = default;

bool Encrypted_Writer::begin() {
  waiting_.reset(new (std::nothrow) char[plain_chunk_size]);
  stored_.reset(new (std::nothrow) char[plain_chunk_size + max_chunk_overhead]);
  char header[encrypted_header_size];
  Object_Keys keys;
  if (!waiting_ || !stored_ || !keys_.make_header(header) || !keys_.derive(header, key_, keys) || !cipher_.start(keys))
    return fail_here();
  return next_->write(header, sizeof header) || failed();
}

bool Encrypted_Writer::write(const void* data, size_t n) {
  return is_usable() && take(static_cast<const char*>(data), n);
}

bool Encrypted_Writer::take(const char* data, size_t n) {
  while (n > 0) {
    if (waiting_size_ == plain_chunk_size) {
      if (!put_chunk(waiting_.get(), plain_chunk_size, false)) return false;
      waiting_size_ = 0;
    }
    const bool whole = waiting_size_ == 0 && n > plain_chunk_size;  // more comes, so it is not the last one
    const size_t portion = std::min(n, plain_chunk_size - waiting_size_);
    if (whole && !put_chunk(data, portion, false)) return false;
    if (!whole) {
      std::memcpy(waiting_.get() + waiting_size_, data, portion);
      waiting_size_ += portion;
    }
    size_ += portion;
    data += portion;
    n -= portion;
  }
  return true;
}

bool Encrypted_Writer::commit() {
  if (!is_usable() || !put_chunk(waiting_.get(), waiting_size_, true)) return false;
  if (!next_->commit()) return failed();
  error_ = EINVAL;  // it is finished
  return true;
}

bool Encrypted_Writer::put_chunk(const char* plain, size_t n, bool last) {
  if (!cipher_.seal(chunks_, last, plain, n, stored_.get())) return fail_here();
  ++chunks_;
  return next_->write(stored_.get(), n + chunk_overhead(keys_.cipher())) || failed();
}

bool Encrypted_Writer::is_usable() {
  if (error_ == 0 && canceled_) error_ = ECANCELED;
  errno = error_;
  return error_ == 0;
}

// Memory ran out, or OpenSSL failed, for which there is hardly another reason.
bool Encrypted_Writer::fail_here() {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to encrypt object \"%C\".\n"), printable(key_).c_str()));
  errno = ENOMEM;
  return failed();
}

bool Encrypted_Writer::failed() {
  error_ = errno;
  return false;
}

}  // namespace client_io
