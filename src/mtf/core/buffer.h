#pragma once

#include <cerrno>
#include <memory>
#include <new>

#include "ace/Basic_Types.h"

namespace MTF {

/// A stretch of memory that a file reader fills, its own or another's. One thread at a time.
class Buffer {
 public:
  /// Memory of its own. When there is none, addr() is null, size() is 0 and errno is ENOMEM.
  explicit Buffer(ACE_UINT32 size) : own_(new (std::nothrow) char[size]), addr_(own_.get()), size_(own_ ? size : 0) {
    if (!own_) errno = ENOMEM;
  }
  /// @a addr stays the caller's and must outlive the buffer.
  Buffer(char* addr, ACE_UINT32 size) : addr_(addr), size_(size) {}
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  char* addr() const { return addr_; }
  /// How much may be filled, in bytes.
  ACE_UINT32 size() const { return size_; }
  /// How much the last reader filled, in bytes.
  ACE_UINT32 used_size() const { return used_size_; }
  void used_size(ACE_UINT32 used) { used_size_ = used; }

 private:
  std::unique_ptr<char[]> own_;
  char* addr_;
  ACE_UINT32 size_;
  ACE_UINT32 used_size_ = 0;
};

}  // namespace MTF
