#include "client_io/rate_limited_client_io.h"

#include <cerrno>
#include <new>

namespace {

using client_io::Rate_Limiter;

class Limited_Writer : public Client_IO_Base::Writer {
 public:
  Limited_Writer(std::unique_ptr<Writer> next, Rate_Limiter& limiter, const std::atomic<bool>& canceled)
      : next_(std::move(next)), limiter_(limiter), canceled_(canceled) {}

  bool write(const void* data, size_t n) override {
    const char* at = static_cast<const char*>(data);
    while (n > 0) {
      const Rate_Limiter::Transfer portion(limiter_, n, canceled_);
      if (portion.size() == 0 || !next_->write(at, portion.size())) return false;
      at += portion.size();
      n -= portion.size();
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
  const std::atomic<bool>& canceled_;
};

class Limited_Reader : public Client_IO_Base::Reader {
 public:
  Limited_Reader(std::unique_ptr<Reader> next, Rate_Limiter& limiter, const std::atomic<bool>& canceled)
      : next_(std::move(next)), limiter_(limiter), canceled_(canceled) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    size_t done = 0;
    while (done < n) {
      const Rate_Limiter::Transfer portion(limiter_, n - done, canceled_);
      if (portion.size() == 0) return -1;
      const ssize_t got = next_->read(offset + done, static_cast<char*>(to) + done, portion.size());
      if (got < 0) return -1;
      done += static_cast<size_t>(got);
      if (static_cast<size_t>(got) < portion.size()) break;
    }
    return static_cast<ssize_t>(done);
  }
  uint64_t size() const override { return next_->size(); }

 private:
  const std::unique_ptr<Reader> next_;
  Rate_Limiter& limiter_;
  const std::atomic<bool>& canceled_;
};

}  // namespace

Rate_Limited_Client_IO::Rate_Limited_Client_IO(std::unique_ptr<Client_IO_Base> next,
                                               std::shared_ptr<client_io::Rate_Limiters> limiters)
    : next_(std::move(next)), limiters_(std::move(limiters)) {}

Rate_Limited_Client_IO::~Rate_Limited_Client_IO() = default;

std::unique_ptr<Client_IO_Base::Writer> Rate_Limited_Client_IO::create(const std::string& key) {
  std::unique_ptr<Writer> next = next_->create(key);
  if (!next) return nullptr;
  std::unique_ptr<Writer> limited(new (std::nothrow) Limited_Writer(std::move(next), limiters_->writes, canceled_));
  if (!limited) errno = ENOMEM;
  return limited;
}

std::unique_ptr<Client_IO_Base::Reader> Rate_Limited_Client_IO::open(const std::string& key) {
  std::unique_ptr<Reader> next = next_->open(key);
  if (!next) return nullptr;
  std::unique_ptr<Reader> limited(new (std::nothrow) Limited_Reader(std::move(next), limiters_->reads, canceled_));
  if (!limited) errno = ENOMEM;
  return limited;
}

void Rate_Limited_Client_IO::cancel() {
  canceled_ = true;
  next_->cancel();
}
