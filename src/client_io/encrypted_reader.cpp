#include "client_io/encrypted_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace client_io {

namespace {

// So many chunks are fetched from the storage at a time.
constexpr uint64_t max_run = 16;

const char foreign[] = "it is not encrypted, but its pool is";

}  // namespace

Encrypted_Reader::Encrypted_Reader(std::unique_ptr<Reader> next, const Key_Source& keys, const std::string& key,
                                   const std::atomic<bool>& canceled)
    : next_(std::move(next)), key_(key), keys_(keys), canceled_(canceled), layout_(keys.cipher(), next_->size()) {}

Encrypted_Reader::~Encrypted_Reader() = default;

bool Encrypted_Reader::begin() {
  char header[encrypted_header_size];
  const size_t there = static_cast<size_t>(std::min<uint64_t>(next_->size(), sizeof header));
  if (!read_exactly(0, header, there)) return false;
  if (!looks_encrypted(header, there)) return fail(0, foreign);
  if (there < sizeof header) return fail(there, "it ends too early");
  if (!check_header(header)) return false;
  if (!keys_.derive(header, key_, object_keys_)) return no_memory() == 0;
  // The end proves the size.
  char byte;
  return layout_.is_valid() ? read_chunks(layout_.plain_size(), &byte, 0) == 0
                            : fail(next_->size(), "it ends too early");
}

bool Encrypted_Reader::check_header(const char* header) {
  const Encryption_Algorithm cipher = cipher_of_header(header);
  if (cipher == keys_.cipher()) return keys_.owns_header(header) || fail(0, "wrong key or damaged header");
  const std::string why = "it has cipher " + std::to_string(cipher) + ", its pool " + std::to_string(keys_.cipher());
  return fail(0, cipher == ENCRYPT_NONE ? "damaged header" : why.c_str());
}

ssize_t Encrypted_Reader::read(uint64_t offset, void* to, size_t n) {
  if (canceled_) {
    errno = ECANCELED;
    return -1;
  }
  if (offset >= size()) return 0;
  n = static_cast<size_t>(std::min<uint64_t>(n, size() - offset));
  char* const bytes = static_cast<char*>(to);
  size_t done = static_cast<size_t>(read_cached(offset, bytes, n));
  while (done < n) {
    const ssize_t got = read_chunks(offset + done, bytes + done, n - done);
    if (got < 0) return -1;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// What the chunk at hand has of it.
ssize_t Encrypted_Reader::read_cached(uint64_t offset, char* to, size_t n) {
  std::lock_guard<std::mutex> guard(lock_);
  if (cached_.empty() || cached_number_ != offset / plain_chunk_size) return 0;
  const size_t from = offset % plain_chunk_size;
  n = std::min(n, cached_.size() - from);
  std::memcpy(to, cached_.data() + from, n);
  return static_cast<ssize_t>(n);
}

// Reads what the next few chunks have of it. With n 0 it only proves the chunk there.
ssize_t Encrypted_Reader::read_chunks(uint64_t offset, char* to, size_t n) {
  const uint64_t first = std::min(offset / plain_chunk_size, layout_.chunks() - 1);
  const uint64_t end = n == 0 ? first + 1 : std::min((offset + n - 1) / plain_chunk_size + 1, first + max_run);
  const uint64_t from = layout_.stored_offset(first);
  const size_t stored_size =
      static_cast<size_t>(layout_.stored_offset(end - 1) - from) + layout_.stored_length(end - 1);
  const std::unique_ptr<char[]> stored(new (std::nothrow) char[stored_size]);
  Chunk_Cipher cipher(keys_, Chunk_Cipher::OPEN);
  if (!stored || !cipher.start(object_keys_)) return no_memory();
  if (!read_exactly(from, stored.get(), stored_size)) return -1;
  size_t done = 0;
  for (uint64_t number = first; number < end; ++number) {
    const char* const chunk = stored.get() + (layout_.stored_offset(number) - from);
    const size_t skipped = static_cast<size_t>(offset + done - number * plain_chunk_size);
    const ssize_t got = take(cipher, number, chunk, skipped, to + done, n - done);
    if (got < 0) return -1;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// Decrypts one chunk and gives up to n bytes of it behind the first few. What is not wanted whole is kept at hand.
ssize_t Encrypted_Reader::take(Chunk_Cipher& cipher, uint64_t number, const char* chunk, size_t skipped, char* to,
                               size_t n) {
  const size_t length = layout_.plain_length(number);
  n = std::min(n, length - skipped);
  const bool whole = n == length && n > 0;
  std::string part(whole ? 0 : length, '\0');
  if (!cipher.open(number, layout_.is_last(number), chunk, length, whole ? to : part.data())) {
    fail(layout_.stored_offset(number), "it is damaged, or was put in the place of another");
    return -1;
  }
  if (whole) return static_cast<ssize_t>(n);
  std::memcpy(to, part.data() + skipped, n);
  std::lock_guard<std::mutex> guard(lock_);
  cached_.swap(part);
  cached_number_ = number;
  return static_cast<ssize_t>(n);
}

bool Encrypted_Reader::read_exactly(uint64_t offset, char* to, size_t n) {
  const ssize_t got = next_->read(offset, to, n);
  if (got < 0) return false;
  return static_cast<size_t>(got) == n || fail(offset + static_cast<uint64_t>(got), "it ends too early");
}

bool Encrypted_Reader::fail(uint64_t offset, const char* why) const {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to decrypt object \"%C\" at offset %Q: %C.\n"), printable(key_).c_str(), offset,
             why));
  errno = EBADMSG;
  return false;
}

ssize_t Encrypted_Reader::no_memory() const {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to decrypt object \"%C\": no memory.\n"), printable(key_).c_str()));
  errno = ENOMEM;
  return -1;
}

}  // namespace client_io
