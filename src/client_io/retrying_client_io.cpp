#include "client_io/retrying_client_io.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>

#include "ace/Log_Msg.h"
#include "client_io/held_failure.h"
#include "client_io/resuming_writer.h"

namespace {

using client_io::Patience;

constexpr size_t max_buffer = size_t(64) << 20;

// A request may ask for any size, and each channel has a client: not each of them tells it.
size_t bounded(size_t asked) {
  static std::atomic<size_t> told{0};  // the size that was told last
  if (asked > max_buffer && told.exchange(asked) != asked)
    ACE_ERROR(
        (LM_WARNING, ACE_TEXT("A resumption buffer of %B bytes is too large, %B are used.\n"), asked, max_buffer));
  return std::min(asked, max_buffer);
}

/// Opens its object anew where the storage lost hold of it.
class Persistent_Reader : public Client_IO_Base::Reader {
 public:
  Persistent_Reader(std::shared_ptr<Reader> reader, Client_IO_Base& client, const std::string& key, Patience& patience)
      : size_(reader->size()), key_(key), client_(client), patience_(patience), reader_(std::move(reader)) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    ssize_t got = -1;
    int error = 0;
    const bool read = patience_.run(Patience::READING, [&] {
      if (error == ESTALE && !open_anew()) return false;
      got = current()->read(offset, to, n);
      error = errno;
      return got >= 0;
    });
    return read ? got : -1;
  }

  uint64_t size() const override { return size_; }

 private:
  std::shared_ptr<Reader> current() {
    std::lock_guard<std::mutex> guard(lock_);
    return reader_;
  }

  bool open_anew() {
    std::shared_ptr<Reader> fresh = client_.open(key_);
    if (!fresh || fresh->size() != size_) {
      errno = ESTALE;  // also where it is not there, or is another one: perhaps not yet
      return false;
    }
    std::lock_guard<std::mutex> guard(lock_);
    reader_ = std::move(fresh);
    return true;
  }

  const uint64_t size_;
  const std::string key_;
  Client_IO_Base& client_;
  Patience& patience_;
  std::mutex lock_;
  std::shared_ptr<Reader> reader_;  // guarded by lock_
};

}  // namespace

Retrying_Client_IO::Retrying_Client_IO(std::unique_ptr<Client_IO_Base> next, const Options& options)
    : next_(std::move(next)),
      buffer_size_(bounded(options.resumption_buffer_size)),
      patience_(options.max_seconds_retry) {}

Retrying_Client_IO::~Retrying_Client_IO() = default;

std::unique_ptr<Client_IO_Base::Writer> Retrying_Client_IO::create(const std::string& key) {
  std::unique_ptr<Writer> next;
  if (!patience_.run(Patience::WRITING, [&] { return (next = next_->create(key)) != nullptr; })) return nullptr;
  std::unique_ptr<Writer> writer(new (std::nothrow)
                                     client_io::Resuming_Writer(std::move(next), buffer_size_, patience_));
  if (!writer) errno = ENOMEM;
  return writer;
}

std::unique_ptr<Client_IO_Base::Reader> Retrying_Client_IO::open(const std::string& key) {
  std::unique_ptr<Reader> next;
  const auto attempt = [&] {
    next = next_->open(key);
    if (!next && errno == ENOENT) client_io::Held_Failure::keep("");  // is not told, nor is what was before
    return next != nullptr;
  };
  if (!patience_.run(Patience::READING, attempt)) return nullptr;
  std::unique_ptr<Reader> reader(new (std::nothrow) Persistent_Reader(std::move(next), *next_, key, patience_));
  if (!reader) errno = ENOMEM;
  return reader;
}

bool Retrying_Client_IO::list(const std::string& prefix, const List_Callback& each) {
  std::string last;
  const auto show = [&](const Object_Info& info) {
    if (info.key <= last) return true;  // shown before it failed
    last = info.key;
    const client_io::Held_Failure none(false);
    return each(info);
  };
  return patience_.run(Patience::READING, [&] { return next_->list(prefix, show); });
}

bool Retrying_Client_IO::remove(const std::string& key) {
  return patience_.run(Patience::WRITING, [&] { return next_->remove(key); });
}

bool Retrying_Client_IO::sweep(const std::string& prefix) {
  return patience_.run(Patience::WRITING, [&] { return next_->sweep(prefix); });
}

void Retrying_Client_IO::cancel() {
  next_->cancel();
  patience_.cancel();
}
