// Counts all memory of the program, which is why it has one of its own.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "kolt/test/deep_tree.h"
#include "mtf_backup/backup/base_merge.h"
#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/memory_client_io.h"

namespace {

std::atomic<int64_t> live{0};
std::atomic<int64_t> peak{0};

void* take(size_t size) {
  void* const memory = std::malloc(size);
  if (!memory) return nullptr;
  const int64_t now = live += static_cast<int64_t>(::malloc_usable_size(memory));
  for (int64_t before = peak; before < now && !peak.compare_exchange_weak(before, now);) {
  }
  return memory;
}

void give(void* memory) {
  live -= static_cast<int64_t>(::malloc_usable_size(memory));
  std::free(memory);
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
  give(memory);
}
void operator delete[](void* memory) noexcept {
  give(memory);
}
void operator delete(void* memory, size_t) noexcept {
  give(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  give(memory);
}

namespace {

using namespace MTF_BACKUP;

MTF::Entry_Stat stat_of(size_t i, unsigned type) {
  MTF::Entry_Stat stat;
  stat.mode = type | 0644;
  stat.ino = i;
  stat.size = i;
  return stat;
}

/// The most memory, beyond what there was before, that it takes to compare a directory of @a count files with itself.
int64_t memory_of_merge(size_t count) {
  const auto pool = std::make_shared<test_support::Memory_Pool>();
  test_support::Memory_Client_IO client(pool);
  Base_Set base{"set/0000000001.1", {}};
  base.record.begin_time = 1'000'000'000;
  const auto name_of = [](size_t i) { return "file-" + std::to_string(10'000'000 + i); };
  {
    Catalog_Writer writer(client, base.dir, base.record.set_uuid);
    EXPECT_TRUE(writer.open());
    Catalog_Entry entry;
    entry.stat = stat_of(0, S_IFDIR);
    EXPECT_TRUE(writer.append(entry));
    for (size_t i = 1; i <= count; ++i) {
      entry.path = name_of(i);
      entry.stat = stat_of(i, S_IFREG);
      EXPECT_TRUE(writer.append(entry));
    }
    EXPECT_TRUE(writer.finish());
    base.record.objects.push_back(writer.object());
  }
  Run_State state;
  Base_Merge merge(client, base, state);
  EXPECT_TRUE(merge.open());  // a reader of this pool has a copy of the object
  const int64_t before = live;
  peak = before;
  Work_Item item;
  item.directory = std::make_shared<const std::string>();
  item.stat = stat_of(0, S_IFDIR);
  size_t kept = merge.keep(item) != nullptr;
  for (size_t i = 1; i <= count; ++i) {
    item.name = name_of(i);
    item.stat = stat_of(i, S_IFREG);
    kept += merge.keep(item) != nullptr;
  }
  EXPECT_EQ(kept, count + 1);
  return peak - before;
}

TEST(Merge_Memory, DoesNotGrowWithTheTree) {
  const int64_t small = memory_of_merge(10'000);
  const int64_t large = memory_of_merge(300'000);
  EXPECT_GT(small, 100'000);
  EXPECT_LT(large, small + small / 4) << small;
}

/// The most memory that a backup of a tree, its restore, take beyond what there was before.
class Deep_Memory : public mover_test::Mover_Fixture {
 protected:
  void measure() {
    prepare = [this](mover_test::Test_Handler&) { peak = before_ = live; };
    ASSERT_TRUE(back_up({.channels = 2}));
    backup_ = peak - before_;
    ASSERT_TRUE(restore());
    restore_ = peak - before_;
  }

  static constexpr int64_t mib_ = 1 << 20;
  int64_t before_ = 0;
  int64_t backup_ = 0;
  int64_t restore_ = 0;
};

TEST_F(Deep_Memory, ManyFilesWithLongPathsDoNotWaitTogether) {
  const Posix_Fd inner = make_deep_tree(source_, std::string(255, 'd'), 60);
  for (int i = 0; i < 3000; ++i)
    Posix_Fd(::openat(inner.get(), std::to_string(i).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  measure();
  EXPECT_LT(backup_ / mib_, 28);
  EXPECT_LT(restore_ / mib_, 70);
}

}  // namespace
