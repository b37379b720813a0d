#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "mtf/core/byte_sink.h"
#include "mtf/core/byte_source.h"

/// A medium in memory that lends its room in pieces of one size and may run full.
class Memory_Sink : public MTF::Byte_Sink {
 public:
  explicit Memory_Sink(size_t piece_size = 1 << 20, uint64_t capacity = ~0ull)
      : piece_(piece_size, '\xEE'), capacity_(capacity) {}

  bool space(char*& at, size_t& avail) override {
    if (bytes.size() >= capacity_) {
      errno = ENOSPC;
      return false;
    }
    at = piece_.data() + used_;
    avail = piece_.size() - used_;
    return true;
  }

  bool advance(size_t n) override {
    bytes.append(piece_, used_, n);
    used_ = (used_ + n) % piece_.size();
    return true;
  }

  uint64_t offset() const override { return bytes.size(); }

  std::string bytes;

 private:
  std::string piece_;
  size_t used_ = 0;
  const uint64_t capacity_;
};

/// A medium in memory that counts reads and may fail at one place.
class Memory_Source : public MTF::Byte_Source {
 public:
  explicit Memory_Source(const std::string& bytes) : bytes_(bytes) {}

  ssize_t read(uint64_t offset, char* buf, size_t n) override {
    ++reads;
    if (offset >= fails_from) {
      errno = EIO;
      return -1;
    }
    if (offset >= bytes_.size()) return 0;
    const size_t part = std::min<uint64_t>(n, bytes_.size() - offset);
    std::memcpy(buf, bytes_.data() + offset, part);
    return static_cast<ssize_t>(part);
  }

  uint64_t reads = 0;
  uint64_t fails_from = ~0ull;

 private:
  const std::string& bytes_;
};
