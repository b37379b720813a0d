// Clean-up, containers and memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "kolt/ownership_delete.h"
#include "kolt/posix_fd.h"
#include "kolt/push_back.h"
#include "kolt/scoped_deleter.h"
#include "kolt/secure_memory.h"

namespace {

// Looks at a block of memory at the moment when it is released.
const void* watched = nullptr;
bool released = false;
bool was_zero = false;

void look_at(const void* block, std::size_t size) {
  if (block == nullptr || block != watched) return;
  const char* bytes = static_cast<const char*>(block);
  released = true;
  was_zero = std::all_of(bytes, bytes + size, [](char c) { return c == 0; });
  watched = nullptr;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* block = operator new(size, std::nothrow)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t size) noexcept {
  look_at(block, size);
  std::free(block);
}

namespace {

using testing::ElementsAre;

TEST(Secure_Memory, BlockIsZeroWhenItIsReleased) {
  auto* text = new secure_string(100, 's');
  watched = text->data();
  released = false;
  delete text;
  EXPECT_TRUE(released);
  EXPECT_TRUE(was_zero);
}

TEST(Secure_Memory, BlockIsZeroWhenTheTextGrowsOutOfIt) {
  secure_string text(100, 's');
  watched = text.data();
  released = false;
  text.append(1000, 't');
  EXPECT_TRUE(released);
  EXPECT_TRUE(was_zero);
}

TEST(Secure_Memory, BytesAreWipedToo) {
  released = false;
  {
    std::basic_string<unsigned char, std::char_traits<unsigned char>, secure_allocator<unsigned char>> key(64, 0xAA);
    watched = key.data();
  }
  EXPECT_TRUE(released);
  EXPECT_TRUE(was_zero);
}

TEST(Secure_Memory, TextsAreWipedWhereTheyLie) {
  std::map<int, std::string> texts{{1, "short"}, {2, std::string(100, 's')}};
  secure_wipe(texts);
  EXPECT_EQ(texts[1], std::string(5, '\0'));
  EXPECT_EQ(texts[2], std::string(100, '\0'));
}

TEST(Secure_Memory, SetFillsTheBlock) {
  char block[] = "secret";
  EXPECT_EQ(secure_memset(block, 'x', 3), block);
  EXPECT_STREQ(block, "xxxret");
  EXPECT_EQ(secure_memset(nullptr, 0, 0), nullptr);
}

TEST(Secure_Memory, StringsCompareAndCopy) {
  const secure_string one = "secret", other = one;
  EXPECT_EQ(one, other);
  EXPECT_TRUE(one + "s" == "secrets");
}

TEST(Scoped_Deleter, RunsAtTheEndOfTheScope) {
  int calls = 0;
  {
    const auto deleter = make_deleter([&] { ++calls; });
    EXPECT_TRUE(deleter.valid);
    EXPECT_EQ(calls, 0);
  }
  EXPECT_EQ(calls, 1);
}

TEST(Scoped_Deleter, RunsWhenAnExceptionLeaves) {
  int calls = 0;
  try {
    const auto deleter = make_deleter([&] { ++calls; });
    throw std::runtime_error("leave");
  } catch (const std::exception&) {
  }
  EXPECT_EQ(calls, 1);
}

TEST(Scoped_Deleter, NeverRunsAfterRelease) {
  int calls = 0;
  {
    auto deleter = make_deleter([&] { ++calls; });
    deleter.release();
    EXPECT_FALSE(deleter.valid);
    deleter.reset();
  }
  EXPECT_EQ(calls, 0);
}

TEST(Scoped_Deleter, RunsOnceWhenReset) {
  int calls = 0;
  {
    auto deleter = make_deleter([&] { ++calls; });
    deleter.reset();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(deleter.valid);
    deleter.reset();
  }
  EXPECT_EQ(calls, 1);
}

TEST(Scoped_Deleter, MoveTransfersTheDuty) {
  int calls = 0;
  {
    auto deleter = make_deleter([&] { ++calls; });
    {
      const auto other = std::move(deleter);
      EXPECT_TRUE(other.valid);
    }
    EXPECT_EQ(calls, 1);
  }
  EXPECT_EQ(calls, 1);
}

TEST(Push_Back, AppendsARangeAndChains) {
  std::vector<int> to = {1};
  const std::list<int> from = {2, 3};
  const int array[] = {4};
  EXPECT_EQ(&push_back(push_back(to, from, 0), array), &to);
  EXPECT_THAT(to, ElementsAre(1, 2, 3, 4));
}

TEST(Push_Back, HintReservesRoomForThatManyMore) {
  std::vector<int> to = {1, 2};
  push_back(to, std::vector<int>{3}, 100);
  EXPECT_GE(to.capacity(), 102u);
  EXPECT_THAT(to, ElementsAre(1, 2, 3));
}

TEST(Push_Back, HintIsNothingToAContainerWithoutRoomToReserve) {
  std::list<int> to;
  push_back(to, std::vector<int>{1}, 10);
  EXPECT_THAT(to, ElementsAre(1));
}

TEST(Ownership_Delete, FreesOnlyWhatItOwns) {
  int borrowed[] = {1, 2};
  const std::unique_ptr<int[], ownership_delete<int[]>> borrower(borrowed, ownership_delete<int[]>(false));
  const std::unique_ptr<int[], ownership_delete<int[]>> owner(new int[2], ownership_delete<int[]>(true));
  EXPECT_FALSE(borrower.get_deleter().ownership_);
  EXPECT_TRUE(owner.get_deleter().ownership_);
}

bool is_open(int fd) {
  return lseek(fd, 0, SEEK_CUR) != -1 || errno != EBADF;
}

TEST(Posix_Fd, ClosesAtTheEndAndKeepsErrno) {
  const int number = dup(0);
  {
    const Posix_Fd fd(number);
    EXPECT_TRUE(fd);
    errno = ENOSPC;
  }
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(is_open(number));
}

TEST(Posix_Fd, MovesAndReleases) {
  Posix_Fd one(dup(0));
  Posix_Fd other(dup(0));
  const int first = one.get(), second = other.get();
  other = std::move(one);
  EXPECT_FALSE(is_open(second));
  EXPECT_FALSE(one);
  EXPECT_EQ(other.release(), first);
  EXPECT_TRUE(is_open(first));
  Posix_Fd(first).reset();
  EXPECT_FALSE(is_open(first));
}

}  // namespace
