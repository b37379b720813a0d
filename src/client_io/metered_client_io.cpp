#include "client_io/metered_client_io.h"

#include <cerrno>
#include <chrono>
#include <new>

#include "kolt/metrics.h"

namespace {

/// One kind of operation on the storage.
class Meter {
 public:
  explicit Meter(const char* operation)
      : operation_(operation),
        seconds_("tessarin_storage_operation_seconds", "How long operations of the storage took.",
                 {{"operation", operation}}, {0.001, 0.005, 0.02, 0.1, 0.5, 1, 2, 5, 10, 30, 60, 300}) {
    errors("other").add(0);
  }

  /// Runs and counts. What it gives is a failure where it is false, null or below 0.
  template <typename Function>
  auto run(const Function& function) const {
    const auto begin = std::chrono::steady_clock::now();
    auto result = function();
    const int error = errno;
    seconds_.observe(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    if (has_failed(result) && error != ECANCELED && error != ENOENT) errors(reason(error)).add();
    errno = error;
    return result;
  }

 private:
  static bool has_failed(bool result) { return !result; }
  static bool has_failed(ssize_t result) { return result < 0; }
  template <typename Object>
  static bool has_failed(const std::unique_ptr<Object>& result) {
    return !result;
  }

  static const char* reason(int error) {
    switch (error) {
      case ENOSPC:
      case EDQUOT:
        return "full";
      case EACCES:
      case EPERM:
      case EROFS:
        return "refused";
      case ETIMEDOUT:
      case EAGAIN:
        return "timeout";
      case ECONNREFUSED:
      case ECONNRESET:
      case ECONNABORTED:
      case EHOSTUNREACH:
      case ENETUNREACH:
      case ENETDOWN:
      case EHOSTDOWN:
      case ENOTCONN:
      case EREMOTEIO:
      case ESTALE:
        return "unreachable";
      case EBADMSG:
        return "damaged";
      case EIO:
        return "io";
      default:
        return "other";
    }
  }

  kolt::Counter errors(const char* why) const {
    return kolt::Counter("tessarin_storage_errors_total", "Operations of the storage that failed.",
                         {{"operation", operation_}, {"reason", why}});
  }

  const char* const operation_;
  const kolt::Histogram seconds_;
};

kolt::Counter bytes(const char* direction) {
  return kolt::Counter("tessarin_storage_bytes_total", "Bytes written to and read from the storage.",
                       {{"direction", direction}});
}

const kolt::Counter bytes_written = bytes("written");
const kolt::Counter bytes_read = bytes("read");
const Meter write_meter("write");
const Meter commit_meter("commit");
const Meter read_meter("read");
const Meter create_meter("create");
const Meter open_meter("open");
const Meter list_meter("list");
const Meter remove_meter("remove");
const Meter sweep_meter("sweep");

class Metered_Writer : public Client_IO_Base::Writer {
 public:
  explicit Metered_Writer(std::unique_ptr<Writer> next) : next_(std::move(next)) {}

  bool write(const void* data, size_t n) override {
    const bool written = write_meter.run([&] { return next_->write(data, n); });
    if (written) bytes_written.add(static_cast<double>(n));
    return written;
  }
  bool commit() override {
    return commit_meter.run([&] { return next_->commit(); });
  }
  uint64_t size() const override { return next_->size(); }
  bool settle(uint64_t n) override { return next_->settle(n); }
  int64_t resume(uint64_t settled) override { return next_->resume(settled); }

 private:
  const std::unique_ptr<Writer> next_;
};

class Metered_Reader : public Client_IO_Base::Reader {
 public:
  explicit Metered_Reader(std::unique_ptr<Reader> next) : next_(std::move(next)) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    const ssize_t got = read_meter.run([&] { return next_->read(offset, to, n); });
    if (got > 0) bytes_read.add(static_cast<double>(got));
    return got;
  }
  uint64_t size() const override { return next_->size(); }

 private:
  const std::unique_ptr<Reader> next_;
};

template <typename Wrapper, typename Object>
std::unique_ptr<Object> metered(std::unique_ptr<Object> next) {
  if (!next) return nullptr;
  std::unique_ptr<Object> wrapped(new (std::nothrow) Wrapper(std::move(next)));
  if (!wrapped) errno = ENOMEM;
  return wrapped;
}

}  // namespace

std::unique_ptr<Client_IO_Base::Writer> Metered_Client_IO::create(const std::string& key) {
  return metered<Metered_Writer>(create_meter.run([&] { return next_->create(key); }));
}

std::unique_ptr<Client_IO_Base::Reader> Metered_Client_IO::open(const std::string& key) {
  return metered<Metered_Reader>(open_meter.run([&] { return next_->open(key); }));
}

bool Metered_Client_IO::list(const std::string& prefix, const List_Callback& each) {
  return list_meter.run([&] { return next_->list(prefix, each); });
}

bool Metered_Client_IO::remove(const std::string& key) {
  return remove_meter.run([&] { return next_->remove(key); });
}

bool Metered_Client_IO::sweep(const std::string& prefix) {
  return sweep_meter.run([&] { return next_->sweep(prefix); });
}
