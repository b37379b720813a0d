#include "client_io/file_client_io.h"
#include "client_io/rate_limited_client_io.h"
#include "client_io/test/driver_conformance.h"
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
    return std::make_shared<Rate_Limited_Client_IO>(std::make_unique<File_Client_IO>(*dir / "pool", options), limits);
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

std::string driver_name(const ::testing::TestParamInfo<Pool_Maker>& info) {
  static const char* const names[] = {"File", "RateLimited", "Memory", "Faultless"};
  return names[info.index];
}

INSTANTIATE_TEST_SUITE_P(Drivers, Driver_Conformance,
                         ::testing::Values(Pool_Maker(file_pool), Pool_Maker(limited_pool), Pool_Maker(memory_pool),
                                           Pool_Maker(faultless_pool)),
                         driver_name);

}  // namespace
