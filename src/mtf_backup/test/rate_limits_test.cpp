#include <chrono>

#include "client_io/rate_limited_client_io.h"
#include "mtf_backup/test/mover_fixture.h"

using namespace mover_test;

namespace {

/// The limits of a job are divided over its channels.
class Rate_Limited_Run : public Mover_Fixture {
 protected:
  void limit(size_t bytes_per_second, size_t channels) {
    Rate_Limits limits;
    limits.dest_rate_limits = limits.src_rate_limits = {{0, 86400, bytes_per_second}};
    limits.set_rate_limits_by_channels(channels);
    wrap = [limits](std::unique_ptr<Client_IO_Base> driver) {
      return std::make_shared<Rate_Limited_Client_IO>(std::move(driver), limits);
    };
  }
  template <typename Run>
  static double seconds(Run run) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(run());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
  double stored() const {
    double bytes = 0;
    for (const auto& [key, object] : pool_->objects) bytes += static_cast<double>(object.size());
    return bytes;
  }
};

// That they are not much slower than the limit is tested with a clock of its own, beside the limiter.
TEST_F(Rate_Limited_Run, ManyChannelsTogetherAreNotFasterThanTheLimit) {
  constexpr size_t per_second = 20'000'000;
  const std::string large = noise(5'000'000);  // so large that each goes to a channel of its own
  for (int i = 0; i < 8; ++i) write("f" + std::to_string(i), large);
  limit(per_second, 8);
  const double taken = seconds([&] { return back_up({.channels = 8}); });
  EXPECT_GE(taken, 0.95 * stored() / per_second);
  RecordProperty("rate", std::to_string(stored() / taken));
}

TEST_F(Rate_Limited_Run, ReadsKeepToTheirLimitToo) {
  constexpr size_t per_second = 2'000'000;
  for (int i = 0; i < 4; ++i) write("f" + std::to_string(i), noise(1'000'000, i));
  ASSERT_TRUE(back_up({.channels = 2}));
  limit(per_second, 2);
  const double taken = seconds([&] { return restore({}); });
  EXPECT_GE(taken, 0.95 * 4'000'000 / per_second);
  EXPECT_EQ("", differences());
}

}  // namespace
