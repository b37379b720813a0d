#pragma once

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/object_key.h"
#include "kolt/clock.h"

namespace test_support {

/// Says which storage operation fails. Threads: any.
class Fault_Plan {
 public:
  /// Operations that are counted together.
  enum Kind { CREATE = 1, WRITE = 2, COMMIT = 4, OPEN = 8, READ = 16, LIST = 32, REMOVE = 64, SWEEP = 128, ALL = 255 };

  /// The @a nth operation (from 0) of @a kinds fails with @a error, and with @a for_good all that follow it too.
  Fault_Plan(int kinds, int nth, int error = EIO, bool for_good = false)
      : kinds_(kinds), nth_(nth), error_(error), for_good_(for_good) {}

  /// From the @a nth operation (from 0) on all fail with @a error for so many seconds of kolt::clock().
  static Fault_Plan away(int nth, time_t seconds, int error) {
    Fault_Plan plan(ALL, nth, error, true);
    plan.seconds_ = seconds;
    return plan;
  }
  Fault_Plan(Fault_Plan&& other) noexcept
      : kinds_(other.kinds_),
        nth_(other.nth_),
        error_(other.error_),
        for_good_(other.for_good_),
        seconds_(other.seconds_) {}

  /// Whether a fault came up, so that a loop over nth knows when it has passed the last operation.
  bool struck() const { return struck_; }

  /// Counts an operation. True: it fails, errno is set and the failure logged as a driver does it.
  bool strikes(Kind kind, const char* operation, const std::string& key) {
    if ((kinds_ & kind) == 0) return false;
    const int number = count_++;
    if (number != nth_ && (number < nth_ || !for_good_)) return false;
    time_t none = 0;
    const time_t now = kolt::clock().now();
    since_.compare_exchange_strong(none, now);
    if (seconds_ != 0 && now >= since_ + seconds_) return false;
    struck_ = true;
    errno = error_;
    client_io::log_failure(operation, key, "faulty");
    return true;
  }

 private:
  const int kinds_;
  const int nth_;
  const int error_;
  const bool for_good_;
  time_t seconds_ = 0;  // 0: no end
  std::atomic<int> count_{0};
  std::atomic<time_t> since_{0};  // of the first fault
  std::atomic<bool> struck_{false};
};

/// A client that fails as planned and else does what another one does. Both are borrowed.
class Faulty_Client_IO : public Client_IO_Base {
 public:
  Faulty_Client_IO(Client_IO_Base& next, Fault_Plan& plan) : next_(next), plan_(plan) {}

  std::unique_ptr<Writer> create(const std::string& key) override {
    if (plan_.strikes(Fault_Plan::CREATE, "create", key)) return nullptr;
    std::unique_ptr<Writer> next = next_.create(key);
    return next ? std::make_unique<Faulty_Writer>(std::move(next), plan_, key) : nullptr;
  }
  std::unique_ptr<Reader> open(const std::string& key) override {
    if (plan_.strikes(Fault_Plan::OPEN, "open", key)) return nullptr;
    std::unique_ptr<Reader> next = next_.open(key);
    return next ? std::make_unique<Faulty_Reader>(std::move(next), plan_, key) : nullptr;
  }
  bool list(const std::string& prefix, const List_Callback& each) override {
    return !plan_.strikes(Fault_Plan::LIST, "list", prefix) && next_.list(prefix, each);
  }
  bool remove(const std::string& key) override {
    return !plan_.strikes(Fault_Plan::REMOVE, "remove", key) && next_.remove(key);
  }
  bool sweep(const std::string& prefix) override {
    return !plan_.strikes(Fault_Plan::SWEEP, "sweep", prefix) && next_.sweep(prefix);
  }
  void cancel() override { next_.cancel(); }

 private:
  class Faulty_Writer : public Writer {
   public:
    Faulty_Writer(std::unique_ptr<Writer> next, Fault_Plan& plan, const std::string& key)
        : next_(std::move(next)), plan_(plan), key_(key) {}
    bool write(const void* data, size_t n) override {
      return works(Fault_Plan::WRITE, "write") && next_->write(data, n);
    }
    bool commit() override { return works(Fault_Plan::COMMIT, "commit") && next_->commit(); }
    uint64_t size() const override { return next_->size(); }
    bool settle(uint64_t n) override { return works(Fault_Plan::WRITE, "write") && next_->settle(n); }
    int64_t resume(uint64_t settled) override {
      error_ = 0;
      return next_->resume(settled);
    }

   private:
    // The first failure stays, as the contract asks.
    bool works(Fault_Plan::Kind kind, const char* operation) {
      if (error_ == 0 && plan_.strikes(kind, operation, key_)) error_ = errno;
      errno = error_;
      return error_ == 0;
    }

    const std::unique_ptr<Writer> next_;
    Fault_Plan& plan_;
    const std::string key_;
    int error_ = 0;
  };

  class Faulty_Reader : public Reader {
   public:
    Faulty_Reader(std::unique_ptr<Reader> next, Fault_Plan& plan, const std::string& key)
        : next_(std::move(next)), plan_(plan), key_(key) {}
    ssize_t read(uint64_t offset, void* to, size_t n) override {
      return plan_.strikes(Fault_Plan::READ, "read", key_) ? -1 : next_->read(offset, to, n);
    }
    uint64_t size() const override { return next_->size(); }

   private:
    const std::unique_ptr<Reader> next_;
    Fault_Plan& plan_;
    const std::string key_;
  };

  Client_IO_Base& next_;
  Fault_Plan& plan_;
};

}  // namespace test_support
