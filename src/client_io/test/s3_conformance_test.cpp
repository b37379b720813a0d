#include "client_io/s3_client_io.h"
#include "client_io/s3_settings.h"
#include "client_io/test/driver_conformance.h"
#include "kolt/clock.h"
#include "kolt/pool_info.h"
#include "support/fake_s3.h"
#include "support/fault_proxy.h"
#include "support/s3rver.h"

namespace {

using test_support::Fake_S3;
using test_support::Fault_Proxy;
using test_support::Network_Fault;
using test_support::S3rver;

std::shared_ptr<Client_IO_Base> s3_client(const std::string& endpoint, const std::string& key,
                                          const std::string& secret, const Client_IO_Base::Options& options) {
  Pool_Info pool;
  pool.url = "s3://bucket/pre fix";
  pool.default_s3 = {{"endpoint", endpoint}, {"access_key_id", key}, {"secret_access_key", secret}};
  return std::make_shared<S3_Client_IO>(*client_io::s3_settings(pool, "root", options));
}

Client_Maker fake_pool() {
  auto service = std::make_shared<Fake_S3>();
  service->page_size(2);
  return [service](const Client_IO_Base::Options& options) {
    return s3_client(service->endpoint(), "access", "secret", options);
  };
}

void skip_without_s3rver() {
  if (!S3rver::missing().empty()) GTEST_SKIP() << S3rver::missing();
  const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  if (test.starts_with("AComponentMayHave255Bytes"))
    GTEST_SKIP() << "s3rver keeps objects in files whose names are longer than those of the objects";
}

Client_Maker no_pool() {
  return [](const Client_IO_Base::Options&) { return nullptr; };
}

Client_Maker s3rver_pool() {
  skip_without_s3rver();
  if (::testing::Test::IsSkipped()) return no_pool();
  auto service = std::make_shared<S3rver>();
  return [service](const Client_IO_Base::Options& options) {
    return s3_client(service->endpoint(), "S3RVER", "S3RVER", options);
  };
}

// Every third request fails, each time in another way.
struct Bad_Network {
  Network_Fault next() {
    static const Network_Fault faults[] = {Network_Fault::RESET_IN_REQUEST, Network_Fault::ANSWER_503,
                                           Network_Fault::CUT_ANSWER,       Network_Fault::ANSWER_500,
                                           Network_Fault::LOSE_ANSWER,      Network_Fault::RESET_IN_ANSWER,
                                           Network_Fault::ANSWER_429,       Network_Fault::CUT_HEAD};
    const unsigned number = count++;
    return number % 3 == 2 ? faults[number / 3 % std::size(faults)] : Network_Fault::NONE;
  }
  std::atomic<unsigned> count{0};
};

// Waits between tries take no time.
class No_Wait : public kolt::Clock {
 public:
  No_Wait() : previous_(kolt::set_clock(this)) {}
  ~No_Wait() override { kolt::set_clock(previous_); }
  time_t now() override { return time(nullptr); }
  void sleep(std::chrono::milliseconds) override {}

 private:
  kolt::Clock* const previous_;
};

Client_Maker bad_network_pool() {
  skip_without_s3rver();
  if (::testing::Test::IsSkipped()) return no_pool();
  struct World {
    No_Wait clock;
    S3rver service;
    Bad_Network network;
    Fault_Proxy proxy{service.port(), [this](const std::string&) { return network.next(); }};
  };
  auto world = std::make_shared<World>();
  return [world](const Client_IO_Base::Options& options) {
    return s3_client("http://127.0.0.1:" + std::to_string(world->proxy.port()), "S3RVER", "S3RVER", options);
  };
}

std::string service_name(const ::testing::TestParamInfo<Pool_Maker>& info) {
  static const char* const names[] = {"FakeS3", "S3rver", "S3rverOverABadNetwork"};
  return names[info.index];
}

INSTANTIATE_TEST_SUITE_P(S3, Driver_Conformance,
                         ::testing::Values(Pool_Maker(fake_pool), Pool_Maker(s3rver_pool),
                                           Pool_Maker(bad_network_pool)),
                         service_name);

}  // namespace
