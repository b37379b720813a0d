#include "client_io/rate_limited_client_io.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace {

using client_io::Rate_Clock;
using client_io::Rate_Limiter;

class System_Rate_Clock : public Rate_Clock {
 public:
  std::chrono::nanoseconds now() override { return std::chrono::steady_clock::now().time_since_epoch(); }

  unsigned second_of_day() override {
    const time_t moment = time(nullptr);
    struct tm local;
    localtime_r(&moment, &local);
    return static_cast<unsigned>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec);
  }

  void wait(std::chrono::nanoseconds span) override {
    std::unique_lock<std::mutex> guard(lock_);
    woken_.wait_for(guard, std::min<std::chrono::nanoseconds>(span, std::chrono::minutes(1)),
                    [this] { return awake_; });
  }

  void wake() override {
    {
      std::lock_guard<std::mutex> guard(lock_);
      awake_ = true;
    }
    woken_.notify_all();
  }

 private:
  std::mutex lock_;
  std::condition_variable woken_;
  bool awake_ = false;  // guarded by lock_
};

class Limited_Writer : public Client_IO_Base::Writer {
 public:
  Limited_Writer(std::unique_ptr<Writer> next, Rate_Limiter& limiter) : next_(std::move(next)), limiter_(limiter) {}

  bool write(const void* data, size_t n) override {
    const char* at = static_cast<const char*>(data);
    while (n > 0) {
      const size_t portion = limiter_.portion(n);
      if (!limiter_.pass(portion) || !next_->write(at, portion)) return false;
      at += portion;
      n -= portion;
    }
    return true;
  }
  bool commit() override { return next_->commit(); }
  uint64_t size() const override { return next_->size(); }
  bool settle(uint64_t n) override { return next_->settle(n); }
  int64_t resume(uint64_t settled) override { return next_->resume(settled); }

 private:
  const std::unique_ptr<Writer> next_;
  Rate_Limiter& limiter_;
};

class Limited_Reader : public Client_IO_Base::Reader {
 public:
  Limited_Reader(std::unique_ptr<Reader> next, Rate_Limiter& limiter) : next_(std::move(next)), limiter_(limiter) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    size_t done = 0;
    while (done < n) {
      const size_t portion = limiter_.portion(n - done);
      if (!limiter_.pass(portion)) return -1;
      const ssize_t got = next_->read(offset + done, static_cast<char*>(to) + done, portion);
      if (got < 0) return -1;
      done += static_cast<size_t>(got);
      if (static_cast<size_t>(got) < portion) break;
    }
    return static_cast<ssize_t>(done);
  }
  uint64_t size() const override { return next_->size(); }

 private:
  const std::unique_ptr<Reader> next_;
  Rate_Limiter& limiter_;
};

}  // namespace

Rate_Limited_Client_IO::Rate_Limited_Client_IO(std::unique_ptr<Client_IO_Base> next, const Rate_Limits& limits,
                                               std::unique_ptr<Rate_Clock> clock)
    : next_(std::move(next)),
      clock_(clock ? std::move(clock) : std::make_unique<System_Rate_Clock>()),
      writes_(limits.dest_rate_limits, *clock_),
      reads_(limits.src_rate_limits, *clock_) {}

Rate_Limited_Client_IO::~Rate_Limited_Client_IO() = default;

std::unique_ptr<Client_IO_Base::Writer> Rate_Limited_Client_IO::create(const std::string& key) {
  std::unique_ptr<Writer> next = next_->create(key);
  if (!next) return nullptr;
  std::unique_ptr<Writer> limited(new (std::nothrow) Limited_Writer(std::move(next), writes_));
  if (!limited) errno = ENOMEM;
  return limited;
}

std::unique_ptr<Client_IO_Base::Reader> Rate_Limited_Client_IO::open(const std::string& key) {
  std::unique_ptr<Reader> next = next_->open(key);
  if (!next) return nullptr;
  std::unique_ptr<Reader> limited(new (std::nothrow) Limited_Reader(std::move(next), reads_));
  if (!limited) errno = ENOMEM;
  return limited;
}

void Rate_Limited_Client_IO::cancel() {
  next_->cancel();
  writes_.cancel();
  reads_.cancel();
}
