#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "client_io/s3_client_io.h"
#include "client_io/s3_settings.h"
#include "kolt/pool_info.h"
#include "support/fake_s3.h"
#include "support/log_capture.h"

/// A client of the service in memory, with the pool "s3://bucket/pool" and the root "root".
class S3_Fixture : public ::testing::Test {
 protected:
  typedef test_support::Log_Capture Log_Capture;

  S3_Fixture() {
    pool_.url = "s3://bucket/pool";
    pool_.default_s3 = {
        {"endpoint", service_.endpoint()}, {"access_key_id", "access"}, {"secret_access_key", "secret"}};
  }

  std::shared_ptr<S3_Client_IO> client() {
    return std::make_shared<S3_Client_IO>(*client_io::s3_settings(pool_, "root", options_));
  }

  static bool store(Client_IO_Base& client, const std::string& key, const std::string& bytes) {
    const auto writer = client.create(key);
    return writer && writer->write(bytes.data(), bytes.size()) && writer->commit();
  }

  static std::string fetch(Client_IO_Base& client, const std::string& key) {
    const auto reader = client.open(key);
    if (!reader) return "(missing)";
    std::string bytes(reader->size(), '\0');
    return reader->read(0, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? bytes : "(unreadable)";
  }

  /// Bytes that differ from MiB to MiB.
  static std::string mebibytes(size_t count) {
    std::string bytes;
    for (size_t i = 0; i < count; ++i) bytes.append(size_t(1) << 20, static_cast<char>('a' + i % 26));
    return bytes;
  }

  test_support::Fake_S3 service_;
  Pool_Info pool_;
  Client_IO_Base::Options options_;
};
