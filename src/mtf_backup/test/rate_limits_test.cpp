#include "mtf_backup/test/file_pool.h"
#include "support/fake_clock.h"

using namespace mover_test;

namespace {

/// The limits of a job hold for all its clients together, however many channels the request, the set and the work have.
class Rate_Limited_Run : public File_Pool_Fixture {
 protected:
  MTF_BACKUP::Channel_Factory_var make_channels(test_support::Fault_Plan*) const override {
    Pool_Info pool;
    pool.url = "file://" + pool_dir_;
    return MTF_BACKUP::make_channel_factory(pool, "host/minor", options_);
  }

  /// @param channel_num  as a request has it.
  void limit(size_t channel_num) {
    Rate_Limits limits;
    limits.dest_rate_limits = limits.src_rate_limits = {{0, 86400, per_second}};
    limits.set_rate_limits_by_channels(channel_num);
    options_.rate_limits = limits;
  }
  void write_files(int count, size_t size) {
    for (int i = 0; i < count; ++i) write("f" + std::to_string(i), noise(size, static_cast<unsigned>(i)));
    bytes_ = static_cast<double>(count) * static_cast<double>(size);
  }
  template <typename Run>
  void expect_to_keep_the_limit(Run run) {
    const auto begin = clock_.steady();
    EXPECT_TRUE(run());
    const double seconds = std::chrono::duration<double>(clock_.steady() - begin).count();
    EXPECT_NEAR(seconds, bytes_ / per_second, 0.05 * bytes_ / per_second);
  }

  static constexpr size_t per_second = 1'000'000;
  test_support::Fake_Clock clock_;
  Client_IO_Base::Options options_;
  double bytes_ = 0;
};

TEST_F(Rate_Limited_Run, ManyChannelsTogetherKeepToTheLimit) {
  write_files(8, 5'000'000);  // so large that each goes to a channel of its own
  for (const size_t channel_num : {2, 8, 1000}) {
    limit(channel_num);
    expect_to_keep_the_limit([&] { return back_up({.channels = channel_num}); });
  }
}

TEST_F(Rate_Limited_Run, TheOnlyBusyChannelOfEightHasTheWholeLimit) {
  write_files(1, 20'000'000);
  limit(8);
  expect_to_keep_the_limit([&] { return back_up({.channels = 8}); });
}

TEST_F(Rate_Limited_Run, ARestoreKeepsToTheLimitWhateverTheChannelsOfTheSet) {
  write_files(8, 2'500'000);
  for (const size_t of_set : {1, 8}) {
    options_ = {};
    ASSERT_TRUE(back_up({.channels = of_set, .name = "of " + std::to_string(of_set)}));
    for (const size_t channel_num : {1, 8}) {
      SCOPED_TRACE(std::to_string(of_set) + " and " + std::to_string(channel_num));
      limit(channel_num);
      expect_to_keep_the_limit(
          [&] { return restore({.threads = channel_num, .name = "of " + std::to_string(of_set)}); });
      EXPECT_EQ("", differences());
    }
  }
}

}  // namespace
