#include <atomic>
#include <cstdlib>
#include <new>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/log_capture.h"

namespace {

constexpr long never = -1;
std::atomic<long> allocations{0};
std::atomic<long> failing{never};  // the number of the allocation that fails, on whatever thread

void* take(size_t size) {
  if (allocations++ == failing) return nullptr;
  return std::malloc(size != 0 ? size : 1);
}

}  // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return take(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return take(size);
}
void* operator new(size_t size) {
  if (void* const memory = take(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace {

using namespace mover_test;

/// Counts errors in the place of the log, without memory of its own.
class Error_Count : public test_support::Log_Capture {
 public:
  ssize_t log(ACE_Log_Record& record) override {
    if (record.type() >= LM_ERROR) ++count;
    return static_cast<ssize_t>(record.msg_data_len());
  }
  std::atomic<int> count{0};
};

/// One allocation of a run fails, on whatever thread, each time a later one.
class No_Memory : public Mover_Fixture {
 protected:
  No_Memory() {
    for (int i = 0; i < 10; ++i) write("d" + std::to_string(i % 3) + "/f" + std::to_string(i), noise(1000, i));
    write("large", noise(3 << 20));
    prepare = [](Test_Handler&) { allocations = 0; };
  }

  bool back_up_compressed(unsigned seq) {
    return back_up({.compression = COMPR_ZSTD, .channels = 2, .seq = seq, .read_ahead = true});
  }

  /// Does @a run with one allocation failing, for about 200 of those that it makes.
  /// @param check  called after each, with whether it went well.
  void fail_each(const std::function<bool()>& run, const std::function<void(bool)>& check) {
    ASSERT_TRUE(run());
    check(true);
    const long step = std::max(1L, allocations / 200);
    for (long number = 0; number < 1000 * step; number += step) {
      SCOPED_TRACE(number);
      Error_Count errors;
      failing = number;
      bool thrown = false;  // by what the fixture does before and after
      bool ok = false;
      try {
        ok = run();
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      failing = never;
      const bool failed = allocations > number;
      EXPECT_TRUE(ok || failed);
      EXPECT_TRUE(ok || thrown || errors.count > 0) << "nothing told";
      check(ok);
      if (!failed || HasFailure()) return;
    }
    FAIL() << "there is no end to it";
  }
};

TEST_F(No_Memory, BackupLeavesNoSetOrAWholeOne) {
  ASSERT_TRUE(back_up_compressed(0));
  const auto before = pool_->objects;
  fail_each([&] { return back_up_compressed(1); },
            [&](bool ok) {
              if (before == pool_->objects) {
                EXPECT_FALSE(ok);
              } else {
                EXPECT_TRUE(ok || code_ == MTF::E_END_WITH_SKIPPED_FILES) << code_;
                EXPECT_EQ(2u, sets().size());
              }
              pool_->objects = before;
            });
}

TEST_F(No_Memory, RestoreTellsItAndCanBeRunAgain) {
  ASSERT_TRUE(back_up_compressed(0));
  fail_each([&] { return restore(); },
            [&](bool ok) {
              EXPECT_TRUE(ok || restore());
              EXPECT_EQ("", differences());
              std::filesystem::remove_all(target_);
              std::filesystem::create_directory(target_);
            });
}

}  // namespace
