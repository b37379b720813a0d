#include "client_io/encrypted_client_io.h"
#include "client_io/encrypted_layout.h"
#include "client_io/file_client_io.h"
#include "client_io/rate_limited_client_io.h"
#include "client_io/retrying_client_io.h"
#include "client_io/test/driver_conformance.h"
#include "client_io/wrap_driver.h"
#include "support/faulty_client_io.h"
#include "support/memory_client_io.h"
#include "support/temp_dir.h"

namespace {

using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Memory_Client_IO;
using test_support::Memory_Pool;
using test_support::Temp_Dir;

Client_Maker file_pool() {
  auto dir = std::make_shared<Temp_Dir>();
  return [dir](const Client_IO_Base::Options& options) {
    return std::make_shared<File_Client_IO>(*dir / "pool", options);
  };
}

// Limits that no test comes near, so that all goes through the limiter and nothing waits.
Client_Maker limited_pool() {
  auto dir = std::make_shared<Temp_Dir>();
  return [dir](const Client_IO_Base::Options& options) {
    Rate_Limits limits;
    limits.dest_rate_limits = limits.src_rate_limits = {{0, 86400, size_t(1) << 40}};
    return std::make_shared<Rate_Limited_Client_IO>(std::make_unique<File_Client_IO>(*dir / "pool", options),
                                                    std::make_shared<client_io::Rate_Limiters>(limits));
  };
}

Client_Maker memory_pool() {
  auto pool = std::make_shared<Memory_Pool>();
  return [pool](const Client_IO_Base::Options& options) { return std::make_shared<Memory_Client_IO>(pool, options); };
}

// A fault plan that never strikes must not change anything.
Client_Maker faultless_pool() {
  struct Faultless : Faulty_Client_IO {
    Faultless(std::shared_ptr<Client_IO_Base> next, std::unique_ptr<Fault_Plan> plan)
        : Faulty_Client_IO(*next, *plan), next_(std::move(next)), plan_(std::move(plan)) {}
    const std::shared_ptr<Client_IO_Base> next_;
    const std::unique_ptr<Fault_Plan> plan_;
  };
  return [make = memory_pool()](const Client_IO_Base::Options& options) {
    return std::make_shared<Faultless>(make(options), std::make_unique<Fault_Plan>(0, 0));
  };
}

client_io::Pool_Encryption encryption(Encryption_Algorithm cipher) {
  const secure_string key(client_io::key_size(cipher), 'k');
  return {cipher, key, "initial vector"};
}

Pool_Maker encrypted_pool(Encryption_Algorithm cipher) {
  return [cipher]() -> Client_Maker {
    auto pool = std::make_shared<Memory_Pool>();
    return [pool, cipher](const Client_IO_Base::Options& options) {
      auto client =
          std::make_shared<Encrypted_Client_IO>(std::make_unique<Memory_Client_IO>(pool, options), encryption(cipher));
      EXPECT_TRUE(client->start());
      return client;
    };
  };
}

Client_Maker retrying_pool() {
  auto dir = std::make_shared<Temp_Dir>();
  return [dir](const Client_IO_Base::Options& options) {
    return std::make_shared<Retrying_Client_IO>(std::make_unique<File_Client_IO>(*dir / "pool", options), options);
  };
}

// All that the factory can put before a driver.
Client_Maker wrapped_pool() {
  auto dir = std::make_shared<Temp_Dir>();
  return [dir](Client_IO_Base::Options options) -> std::shared_ptr<Client_IO_Base> {
    options.rate_limits.dest_rate_limits = options.rate_limits.src_rate_limits = {{0, 86400, size_t(1) << 40}};
    return client_io::wrap_driver(std::make_unique<File_Client_IO>(*dir / "pool", options), options,
                                  encryption(ENCRYPT_AES_256_GCM), false);
  };
}

const struct {
  const char* name;
  Pool_Maker maker;
} drivers[] = {{"File", file_pool},
               {"RateLimited", limited_pool},
               {"Memory", memory_pool},
               {"Faultless", faultless_pool},
               {"Aes128Cbc", encrypted_pool(ENCRYPT_AES_128_CBC)},
               {"Aes192Cbc", encrypted_pool(ENCRYPT_AES_192_CBC)},
               {"Aes256Cbc", encrypted_pool(ENCRYPT_AES_256_CBC)},
               {"Aes256Gcm", encrypted_pool(ENCRYPT_AES_256_GCM)},
               {"Retrying", retrying_pool},
               {"Wrapped", wrapped_pool}};

std::vector<Pool_Maker> makers() {
  std::vector<Pool_Maker> all;
  for (const auto& driver : drivers) all.push_back(driver.maker);
  return all;
}

std::string driver_name(const ::testing::TestParamInfo<Pool_Maker>& info) {
  return drivers[info.index].name;
}

INSTANTIATE_TEST_SUITE_P(Drivers, Driver_Conformance, ::testing::ValuesIn(makers()), driver_name);

}  // namespace
