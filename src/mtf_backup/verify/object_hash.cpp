#include "mtf_backup/verify/object_hash.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "mtf_backup/set/hash.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t most_early = size_t(16) << 20;
constexpr size_t piece_size = size_t(256) << 10;

}  // namespace

Object_Hash::Object_Hash(uint64_t size) : size_(size), state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  XXH3_128bits_reset(state_.get());
}

void Object_Hash::add(uint64_t offset, const char* bytes, size_t n, Client_IO_Base::Reader& reader) {
  std::lock_guard<std::mutex> guard(lock_);
  if (offset <= done_) return take(offset, bytes, n), drain();
  if (stuck_ || early_.contains(offset)) return;
  early_[offset].assign(bytes, n);
  early_size_ += n;
  if (early_size_ <= most_early) return;
  const int error = errno;
  if (!read_up_to(early_.begin()->first, reader)) {
    stuck_ = true;
    early_.clear();
    early_size_ = 0;
  }
  errno = error;
}

void Object_Hash::take(uint64_t offset, const char* bytes, size_t n) {
  const uint64_t known = done_ - offset;
  if (known >= n) return;
  XXH3_128bits_update(state_.get(), bytes + known, n - static_cast<size_t>(known));
  done_ = offset + n;
}

void Object_Hash::drain() {
  for (auto first = early_.begin(); first != early_.end() && first->first <= done_; first = early_.begin()) {
    take(first->first, first->second.data(), first->second.size());
    early_size_ -= first->second.size();
    early_.erase(first);
  }
}

bool Object_Hash::read_up_to(uint64_t end, Client_IO_Base::Reader& reader) {
  std::string piece(static_cast<size_t>(std::min<uint64_t>(piece_size, end - std::min(end, done_))), '\0');
  while (done_ < end) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(piece.size(), end - done_));
    const ssize_t got = reader.read(done_, piece.data(), n);
    if (got == 0) errno = EBADMSG;
    if (got <= 0) return false;
    take(done_, piece.data(), static_cast<size_t>(got));
    drain();
  }
  return true;
}

bool Object_Hash::finish(Client_IO_Base::Reader& reader, uint64_t& offset) {
  std::lock_guard<std::mutex> guard(lock_);
  while (done_ < size_) {
    const bool reached = read_up_to(early_.empty() ? size_ : early_.begin()->first, reader);
    offset = done_;
    if (!reached) return false;
    drain();
  }
  return true;
}

std::string Object_Hash::text() const {
  std::lock_guard<std::mutex> guard(lock_);
  return hash_text(XXH3_128bits_digest(state_.get()));
}

}  // namespace MTF_BACKUP
