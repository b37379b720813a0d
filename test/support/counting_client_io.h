#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "client_io/client_io_base.h"

namespace test_support {

/// Counts what is read through another client, which is borrowed. Threads: any.
class Counting_Client_IO : public Client_IO_Base {
 public:
  explicit Counting_Client_IO(Client_IO_Base& next) : next_(next) {}

  uint64_t bytes_read() const { return bytes_; }
  void reset() { bytes_ = 0; }

  std::unique_ptr<Writer> create(const std::string& key) override { return next_.create(key); }
  std::unique_ptr<Reader> open(const std::string& key) override {
    std::unique_ptr<Reader> next = next_.open(key);
    return next ? std::make_unique<Counting_Reader>(std::move(next), bytes_) : nullptr;
  }
  bool list(const std::string& prefix, const List_Callback& each) override { return next_.list(prefix, each); }
  bool remove(const std::string& key) override { return next_.remove(key); }
  bool sweep(const std::string& prefix) override { return next_.sweep(prefix); }
  void cancel() override { next_.cancel(); }

 private:
  class Counting_Reader : public Reader {
   public:
    Counting_Reader(std::unique_ptr<Reader> next, std::atomic<uint64_t>& bytes)
        : next_(std::move(next)), bytes_(bytes) {}
    ssize_t read(uint64_t offset, void* to, size_t n) override {
      const ssize_t got = next_->read(offset, to, n);
      if (got > 0) bytes_ += static_cast<uint64_t>(got);
      return got;
    }
    uint64_t size() const override { return next_->size(); }

   private:
    const std::unique_ptr<Reader> next_;
    std::atomic<uint64_t>& bytes_;
  };

  Client_IO_Base& next_;
  std::atomic<uint64_t> bytes_{0};
};

}  // namespace test_support
