#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/object_key.h"

namespace test_support {

/// What a pool in memory holds: bytes by key. A test may change them between the calls of a client.
struct Memory_Pool {
  std::mutex lock;
  std::map<std::string, std::string> objects;  // guarded by lock while clients are in use
};

/// A storage client over a pool in memory, with the contract of Client_IO_Base. Several may share one pool.
class Memory_Client_IO : public Client_IO_Base {
 public:
  explicit Memory_Client_IO(std::shared_ptr<Memory_Pool> pool, const Options& options = Options())
      : pool_(std::move(pool)), overwrite_(options.overwrite) {}

  std::unique_ptr<Writer> create(const std::string& key) override {
    if (!client_io::check_key("create", key, "memory") || stopped()) return nullptr;
    return std::make_unique<Memory_Writer>(*this, key);
  }

  std::unique_ptr<Reader> open(const std::string& key) override {
    if (!client_io::check_key("open", key, "memory")) return nullptr;
    std::lock_guard<std::mutex> guard(pool_->lock);
    const auto found = pool_->objects.find(key);
    if (found != pool_->objects.end()) return std::make_unique<Memory_Reader>(*this, found->second);
    errno = ENOENT;
    return nullptr;
  }

  bool list(const std::string& prefix, const List_Callback& each) override {
    std::map<std::string, std::string> objects;
    {
      std::lock_guard<std::mutex> guard(pool_->lock);
      objects = pool_->objects;
    }
    for (const auto& [key, bytes] : objects) {
      if (!key.starts_with(prefix) || each({key, bytes.size()})) continue;
      errno = ECANCELED;
      return false;
    }
    return true;
  }

  bool remove(const std::string& key) override {
    if (!client_io::check_key("remove", key, "memory")) return false;
    std::lock_guard<std::mutex> guard(pool_->lock);
    pool_->objects.erase(key);
    return true;
  }

  bool sweep(const std::string&) override { return true; }
  void cancel() override { canceled_ = true; }

 private:
  bool stopped() const {
    if (canceled_) errno = ECANCELED;
    return canceled_;
  }

  class Memory_Writer : public Writer {
   public:
    Memory_Writer(Memory_Client_IO& client, const std::string& key) : client_(client), key_(key) {}
    bool write(const void* data, size_t n) override {
      if (error_ == 0 && client_.stopped()) error_ = ECANCELED;
      if (error_ == 0) bytes_.append(static_cast<const char*>(data), n);
      errno = error_;
      return error_ == 0;
    }
    bool commit() override {
      if (!write("", 0)) return false;
      std::lock_guard<std::mutex> guard(client_.pool_->lock);
      std::map<std::string, std::string>& objects = client_.pool_->objects;
      if (!client_.overwrite_ && objects.count(key_) != 0) {
        errno = EEXIST;
        client_io::log_failure("commit", key_, "memory");
        error_ = errno;
        return false;
      }
      objects[key_] = std::move(bytes_);
      return true;
    }
    uint64_t size() const override { return bytes_.size(); }
    int64_t resume(uint64_t settled) override {
      bytes_.resize(settled);
      error_ = 0;
      return static_cast<int64_t>(settled);
    }

   private:
    Memory_Client_IO& client_;
    const std::string key_;
    std::string bytes_;
    int error_ = 0;
  };

  class Memory_Reader : public Reader {
   public:
    Memory_Reader(Memory_Client_IO& client, const std::string& bytes) : client_(client), bytes_(bytes) {}
    ssize_t read(uint64_t offset, void* to, size_t n) override {
      if (client_.stopped()) return -1;
      if (offset >= bytes_.size()) return 0;
      n = std::min<size_t>(n, bytes_.size() - static_cast<size_t>(offset));
      std::memcpy(to, bytes_.data() + offset, n);
      return static_cast<ssize_t>(n);
    }
    uint64_t size() const override { return bytes_.size(); }

   private:
    Memory_Client_IO& client_;
    const std::string bytes_;
  };

  const std::shared_ptr<Memory_Pool> pool_;
  const bool overwrite_;
  std::atomic<bool> canceled_{false};
};

}  // namespace test_support
