#include <algorithm>

#include "client_io/encrypted_client_io.h"
#include "client_io/encrypted_layout.h"
#include "client_io/wrap_driver.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/fake_clock.h"

using namespace mover_test;
using test_support::Fault_Plan;
using test_support::Log_Capture;

namespace {

/// What stands before the storage, and how long it rides out failures.
struct Stack {
  const char* name;
  Encryption_Algorithm cipher;
  size_t max_seconds_retry;
};

/// Every single operation on the storage fails in turn: once, or from then on.
class Fault_Matrix : public Mover_Fixture, public ::testing::WithParamInterface<Stack> {
 protected:
  Fault_Matrix() {
    wrap = [](std::unique_ptr<Client_IO_Base> driver) -> std::shared_ptr<Client_IO_Base> {
      const Encryption_Algorithm cipher = GetParam().cipher;
      Client_IO_Base::Options options;
      options.max_seconds_retry = GetParam().max_seconds_retry;
      options.resumption_buffer_size = 100'000;
      return client_io::wrap_driver(std::move(driver), options,
                                    {cipher, secure_string(client_io::key_size(cipher), 'k'), "iv"}, false);
    };
    for (int i = 0; i < 6; ++i) write("d" + std::to_string(i % 2) + "/f" + std::to_string(i), noise(500, i));
    write("large", noise(300'000));
  }

  bool back_up_once(Fault_Plan* plan) {
    return back_up({.compression = COMPR_ZSTD, .channels = 2, .seq = 1, .plan = plan, .incremental = incremental_});
  }
  bool restore_once(Fault_Plan* plan, unsigned seq = 2) { return restore({.seq = seq, .plan = plan}); }

  void clear_target() const {
    for (const auto& entry : std::filesystem::directory_iterator(target_)) std::filesystem::remove_all(entry);
  }

  // All that stands in the pool belongs to a set.
  void expect_whole_sets(size_t count) {
    const auto records = sets();
    EXPECT_EQ(count, records.size());
    size_t objects = 0;
    for (const auto& record : records) objects += record.objects.size() + 1;
    EXPECT_EQ(objects, pool_->objects.size());
    expect_newest_is_whole();
  }

  void expect_newest_is_whole() {
    clear_target();
    EXPECT_TRUE(restore_once(nullptr));
    EXPECT_EQ("", differences());
  }

  // The older set is as it was. Of the new one there is all, if it was told so, and otherwise no set; but where the
  // storage breaks for good behind the commit record nobody can take it back, and all of the set is there as well.
  void expect_safe(const std::map<std::string, std::string>& before, bool told_good, bool for_good) {
    for (const auto& [key, bytes] : before) EXPECT_TRUE(pool_->objects[key] == bytes) << key;
    const size_t count = sets().size();
    ASSERT_TRUE(count == (told_good ? 2u : 1u) || (for_good && count == 2)) << count;
    if (count == 2) expect_newest_is_whole();
  }

  void fail_backups(bool for_good, int error) {
    ASSERT_TRUE(back_up({.channels = 1}));
    const auto before = pool_->objects;
    write("d0/f0", "changed since");
    std::filesystem::remove(source_ + "/d1/f1");
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(nth);
      pool_->objects = before;
      Fault_Plan plan(Fault_Plan::ALL, nth, error, for_good);
      Log_Capture log;
      const bool good = back_up_once(&plan);
      if (!plan.struck()) {
        EXPECT_TRUE(good) << log.all();
        EXPECT_GT(nth, 20);
        break;
      }
      EXPECT_TRUE(good || !log.texts(LM_ERROR).empty()) << "nothing told";
      expect_safe(before, good, for_good);
      const size_t count = sets().size();
      EXPECT_TRUE(back_up_once(nullptr));
      EXPECT_EQ(count + 1, sets().size());
      if (nth % 7 == 0) expect_newest_is_whole();
    }
  }

  void fail_restores(bool for_good) {
    ASSERT_TRUE(back_up_once(nullptr));
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(nth);
      clear_target();
      const auto before = pool_->objects;
      Fault_Plan plan(Fault_Plan::ALL, nth, EACCES, for_good);
      Log_Capture log;
      const bool good = restore_once(&plan);
      EXPECT_TRUE(before == pool_->objects);
      if (!plan.struck()) {
        EXPECT_TRUE(good) << log.all();
        EXPECT_GT(nth, 5);
        break;
      }
      EXPECT_TRUE(good || !log.texts(LM_ERROR).empty()) << "nothing told";
      if (good) {
        EXPECT_EQ("", differences());
      }
      expect_no_wrong_bytes();
      EXPECT_TRUE(restore_once(nullptr));
      EXPECT_EQ("", differences());
    }
  }

  void expect_no_wrong_bytes() const {
    for (const auto& file : std::filesystem::recursive_directory_iterator(target_))
      if (file.is_regular_file()) {
        const std::string path = file.path().string();
        EXPECT_TRUE(test_support::read_file(source_ + path.substr(target_.size())) == test_support::read_file(path))
            << path;
      }
  }

  test_support::Fake_Clock clock_;
  bool incremental_ = false;
};

std::string stack_name(const ::testing::TestParamInfo<Stack>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Stacks, Fault_Matrix,
                         ::testing::Values(Stack{"Bare", ENCRYPT_NONE, 0}, Stack{"Cbc", ENCRYPT_AES_128_CBC, 0},
                                           Stack{"GcmAndRetries", ENCRYPT_AES_256_GCM, 600}),
                         stack_name);

TEST_P(Fault_Matrix, ABackupWithOneFailureLeavesAWholeSetOrNone) {
  fail_backups(false, ENOSPC);
}
TEST_P(Fault_Matrix, ABackupToStorageThatBreaksLeavesAWholeSetOrNone) {
  fail_backups(true, EROFS);
}
TEST_P(Fault_Matrix, AnIncrementWithOneFailureLeavesAWholeSetOrNone) {
  incremental_ = true;
  fail_backups(false, ENOSPC);
}
TEST_P(Fault_Matrix, AnIncrementToStorageThatBreaksLeavesAWholeSetOrNone) {
  incremental_ = true;
  fail_backups(true, EROFS);
}
TEST_P(Fault_Matrix, ARestoreWithOneFailureRestoresNothingWrong) {
  fail_restores(false);
}
TEST_P(Fault_Matrix, ARestoreFromStorageThatBreaksRestoresNothingWrong) {
  fail_restores(true);
}

/// Storage that is away for a while.
class Outage : public Fault_Matrix {};
INSTANTIATE_TEST_SUITE_P(Stacks, Outage,
                         ::testing::Values(Stack{"Retries", ENCRYPT_NONE, 600},
                                           Stack{"GcmAndRetries", ENCRYPT_AES_256_GCM, 600}),
                         stack_name);

TEST_P(Outage, ABackupGoesOnWhenTheStorageIsBack) {
  for (int nth = 0;; ++nth) {
    SCOPED_TRACE(nth);
    pool_->objects.clear();
    Fault_Plan plan = Fault_Plan::away(nth, 300, ETIMEDOUT);
    Log_Capture log;
    ASSERT_TRUE(back_up_once(&plan)) << log.all();
    EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
    if (!plan.struck()) break;
    EXPECT_TRUE(log.has_containing(LM_WARNING, "It is tried again for up to 600 seconds.")) << log.all();
    EXPECT_TRUE(log.has_containing(LM_WARNING, "The storage works again after ")) << log.all();
    if (nth % 5 == 0) expect_whole_sets(1);
  }
}

TEST_P(Outage, ARestoreGoesOnWhenTheStorageIsBack) {
  ASSERT_TRUE(back_up_once(nullptr));
  for (const int error : {ETIMEDOUT, EIO, ESTALE})
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(nth);
      clear_target();
      Fault_Plan plan = Fault_Plan::away(nth, 300, error);
      Log_Capture log;
      ASSERT_TRUE(restore_once(&plan)) << log.all();
      EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
      EXPECT_EQ("", differences());
      if (!plan.struck()) break;
    }
}

TEST_P(Outage, BeyondTheBoundTheBackupFailsAndNothingHalfIsLeft) {
  ASSERT_TRUE(back_up({.channels = 1}));
  const auto before = pool_->objects;
  std::vector<MTF::Error_Code> codes;
  for (int nth = 0;; nth += 3) {
    SCOPED_TRACE(nth);
    pool_->objects = before;
    Fault_Plan plan = Fault_Plan::away(nth, 1'000'000, ETIMEDOUT);
    Log_Capture log;
    const bool good = back_up_once(&plan);
    codes.push_back(code_);
    if (!plan.struck()) break;
    EXPECT_FALSE(good);
    EXPECT_FALSE(log.texts(LM_ERROR).empty());
    expect_safe(before, false, true);
    const size_t count = sets().size();
    EXPECT_TRUE(back_up_once(nullptr));
    expect_whole_sets(count + 1);
  }
  EXPECT_THAT(codes, ::testing::Contains(MTF::E_WRITE_TO_STORAGE).Times(::testing::Ge(3)));
}

}  // namespace
