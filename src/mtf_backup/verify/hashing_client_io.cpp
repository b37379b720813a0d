#include "mtf_backup/verify/hashing_client_io.h"

#include <cerrno>
#include <new>
#include <utility>

namespace MTF_BACKUP {

namespace {

class Hashing_Reader : public Client_IO_Base::Reader {
 public:
  Hashing_Reader(std::unique_ptr<Client_IO_Base::Reader> next, Object_Hash& hash, std::atomic<uint64_t>& bytes_read)
      : next_(std::move(next)), hash_(hash), bytes_read_(bytes_read) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    const ssize_t got = next_->read(offset, to, n);
    if (got <= 0) return got;
    bytes_read_ += static_cast<uint64_t>(got);
    hash_.add(offset, static_cast<const char*>(to), static_cast<size_t>(got), *next_);
    return got;
  }
  uint64_t size() const override { return next_->size(); }

 private:
  const std::unique_ptr<Client_IO_Base::Reader> next_;
  Object_Hash& hash_;
  std::atomic<uint64_t>& bytes_read_;
};

class Hashing_Client_IO : public Client_IO_Base {
 public:
  Hashing_Client_IO(std::shared_ptr<Client_IO_Base> next, Hashed_Objects& objects)
      : next_(std::move(next)), objects_(objects) {}

  std::unique_ptr<Writer> create(const std::string& key) override { return next_->create(key); }
  std::unique_ptr<Reader> open(const std::string& key) override {
    std::unique_ptr<Reader> reader = next_->open(key);
    const auto found = objects_.hashes.find(key);
    if (!reader || found == objects_.hashes.end()) return reader;
    return std::make_unique<Hashing_Reader>(std::move(reader), found->second, objects_.bytes_read);
  }
  bool list(const std::string& prefix, const List_Callback& each) override { return next_->list(prefix, each); }
  bool remove(const std::string& key) override { return next_->remove(key); }
  bool sweep(const std::string& prefix) override { return next_->sweep(prefix); }
  void cancel() override { next_->cancel(); }

 private:
  const std::shared_ptr<Client_IO_Base> next_;
  Hashed_Objects& objects_;
};

}  // namespace

std::shared_ptr<Client_IO_Base> Hashing_Channel_Factory::storage() {
  std::shared_ptr<Client_IO_Base> next = next_.storage();
  if (!next) return nullptr;
  return std::make_shared<Hashing_Client_IO>(std::move(next), objects_);
}

}  // namespace MTF_BACKUP
