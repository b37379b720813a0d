#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/medium_reader.h"
#include "mtf_backup/set/medium_writer.h"
#include "support/faulty_client_io.h"
#include "support/log_capture.h"
#include "support/memory_client_io.h"

/// A pool in memory and the steps that tests of the storage level share.
class Store_Fixture : public ::testing::Test {
 protected:
  Store_Fixture() { EXPECT_TRUE(workers_.open()); }

  /// Bytes that compress about by half, the same for the same arguments.
  static std::string some_bytes(size_t n, unsigned seed = 1) {
    std::minstd_rand random(seed);
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>(i % 64 < 32 ? random() >> 8 : 'a' + i % 7);
    return bytes;
  }

  static bool append(MTF::Byte_Sink& sink, std::string_view bytes) {
    while (!bytes.empty()) {
      char* at = nullptr;
      size_t avail = 0;
      if (!sink.space(at, avail)) return false;
      const size_t n = std::min(avail, bytes.size());
      std::memcpy(at, bytes.data(), n);
      if (!sink.advance(n)) return false;
      bytes.remove_prefix(n);
    }
    return true;
  }

  static MTF_BACKUP::Medium_Id medium_id(Compression_Method compression, const std::string& dir = "set/0000000001.1") {
    return {dir, "uuid", 0, compression};
  }

  bool write_medium(const MTF_BACKUP::Medium_Id& id, std::string_view bytes, Client_IO_Base* client = nullptr,
                    int level = 0) {
    MTF_BACKUP::Medium_Writer writer(client != nullptr ? *client : client_, id, level, workers_);
    return writer.open() && append(writer, bytes) && writer.finish();
  }

  uint64_t stored_size(const std::string& key) { return pool_->objects.count(key) ? pool_->objects[key].size() : 0; }
  std::string medium_key(const MTF_BACKUP::Medium_Id& id) { return id.set_dir + "/" + MTF_BACKUP::medium_name(id); }
  std::string index_key(const MTF_BACKUP::Medium_Id& id) { return id.set_dir + "/" + MTF_BACKUP::index_name(id); }

  std::unique_ptr<MTF_BACKUP::Medium_Reader> open_medium(const MTF_BACKUP::Medium_Id& id, uint64_t medium_size,
                                                         uint64_t index_size, Client_IO_Base* client = nullptr) {
    auto reader = std::make_unique<MTF_BACKUP::Medium_Reader>(client != nullptr ? *client : client_, id, medium_size,
                                                              index_size, workers_);
    return reader->open() ? std::move(reader) : nullptr;
  }
  std::unique_ptr<MTF_BACKUP::Medium_Reader> open_medium(const MTF_BACKUP::Medium_Id& id,
                                                         Client_IO_Base* client = nullptr) {
    return open_medium(id, stored_size(medium_key(id)), stored_size(index_key(id)), client);
  }

  /// The whole medium; "(failed)" when it cannot be read.
  static std::string read_all(MTF_BACKUP::Medium_Reader* reader) {
    if (reader == nullptr) return "(failed)";
    std::string bytes(reader->size() + 1, '\0');
    const ssize_t got = reader->read(0, bytes.data(), bytes.size());
    if (got < 0) return "(failed)";
    bytes.resize(static_cast<size_t>(got));
    return bytes;
  }

  /// Calls @a each for the object with each of its bits turned over, and for it cut at every length; puts it right
  /// again.
  void damage_everywhere(const std::string& key, const std::function<void(const std::string& what)>& each) {
    const std::string good = pool_->objects.at(key);
    for (size_t bit = 0; bit < good.size() * 8; ++bit) {
      pool_->objects[key][bit / 8] = static_cast<char>(good[bit / 8] ^ (1 << bit % 8));
      each("bit " + std::to_string(bit));
      pool_->objects[key][bit / 8] = good[bit / 8];
    }
    for (size_t length = 0; length < good.size(); ++length) {
      pool_->objects[key] = good.substr(0, length);
      each("cut at " + std::to_string(length));
    }
    pool_->objects[key] = good;
  }

  const std::shared_ptr<test_support::Memory_Pool> pool_ = std::make_shared<test_support::Memory_Pool>();
  test_support::Memory_Client_IO client_{pool_};
  MTF_BACKUP::Frame_Workers workers_;
};
