#include <fcntl.h>
#include <sys/stat.h>

#include "mtf_backup/test/mover_fixture.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

constexpr off_t kib = 1 << 10;
constexpr off_t mib = 1 << 20;
constexpr off_t tib = off_t(1) << 40;

/// Files with holes.
class Sparse : public Mover_Fixture {
 protected:
  /// A file below the source, of @a size bytes, with nothing but these pieces of noise in it.
  std::string make(const std::string& name, off_t size, const std::vector<std::pair<off_t, off_t>>& pieces) const {
    const std::string path = source_ + "/" + name;
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    EXPECT_EQ(0, ftruncate(fd, size));
    for (const auto& [at, n] : pieces) {
      const std::string bytes = noise(static_cast<size_t>(n), static_cast<unsigned>(at + n));
      EXPECT_EQ(n, pwrite(fd, bytes.data(), bytes.size(), at));
    }
    close(fd);
    return path;
  }

  static off_t room_of(const std::string& path) {
    struct stat st;
    EXPECT_EQ(0, stat(path.c_str(), &st)) << path;
    return st.st_blocks * 512;
  }

  void expect_round_trip(const Hook& hook = Hook()) {
    Log_Capture log;
    ASSERT_TRUE(back_up({.channels = 2, .hook = hook})) << log.all();
    ASSERT_TRUE(restore()) << log.all();
    EXPECT_EQ("", differences());
    EXPECT_EQ("", log.all());
  }
};

TEST_F(Sparse, HolesStayHolesInTheSetAndInTheTarget) {
  make("begin", 10 * mib, {{0, mib}});
  make("middle", 10 * mib, {{4 * mib, 100 * kib}, {7 * mib, 3 * mib}});
  make("odd", 10 * mib + 77, {{3 * mib + 5, 12345}, {10 * mib, 77}});
  write("dense", noise(mib));
  expect_round_trip();
  EXPECT_LT(storage_size_, ACE_UINT64(7 * mib));
  EXPECT_LT(room_of(target_ + "/middle"), 4 * mib);
}

TEST_F(Sparse, FileOfATerabyteTakesSeconds) {
  std::vector<std::pair<off_t, off_t>> pieces;
  for (off_t i = 0; i < 10; ++i) pieces.push_back({i * tib / 10 / mib * mib, mib});
  make("huge", tib, pieces);
  expect_round_trip();
  EXPECT_LT(storage_size_, ACE_UINT64(11 * mib));
}

TEST_F(Sparse, FileThatIsNothingButAHoleKeepsItsLength) {
  make("hole", 5 * mib + 3, {});
  expect_round_trip();
  EXPECT_EQ(0u, entry("hole").data_size);
  EXPECT_EQ(0, room_of(target_ + "/hole"));
}

TEST_F(Sparse, HoleAtTheEndKeepsTheLength) {
  make("tail", 9 * mib + 1, {{0, 4 * kib}});
  expect_round_trip();
}

TEST_F(Sparse, SizesAndProgressCountHolesAsBytes) {
  make("a", 100 * mib, {{0, mib}, {60 * mib, mib}});
  ASSERT_TRUE(back_up());
  EXPECT_EQ(ACE_UINT64(100 * mib), size_);
  EXPECT_EQ(ACE_UINT64(100 * mib), set_size_);
  EXPECT_LT(storage_size_, ACE_UINT64(3 * mib));
  EXPECT_EQ(ACE_UINT64(100 * mib), handler_->reports().back().total);
  EXPECT_EQ(ACE_UINT64(100 * mib), handler_->reports().back().processed);
  EXPECT_EQ(uint64_t(2 * mib), entry("a").data_size);
  EXPECT_EQ(uint64_t(100 * mib), entry("a").stat.size);
  ASSERT_TRUE(restore());
  EXPECT_EQ(ACE_UINT64(100 * mib), size_);
  EXPECT_EQ(ACE_UINT64(100 * mib), handler_->reports().back().total);
  EXPECT_EQ(ACE_UINT64(100 * mib), handler_->reports().back().processed);
}

TEST_F(Sparse, DenseFilesAreNotAskedForHoles) {
  write("dense", noise(3 * mib));
  std::atomic<int> asked{0};
  expect_round_trip([&](const char* what, const std::string&) {
    if (std::string(what) == "next_data") ++asked;
    return false;
  });
  EXPECT_EQ(0, asked);
}

TEST_F(Sparse, ReaderThatKnowsNoHolesGivesZeros) {
  make("a", 3 * mib, {{mib, mib}});
  ASSERT_TRUE(back_up({.hook = without_holes}));
  EXPECT_EQ(uint64_t(3 * mib), entry("a").data_size);
  ASSERT_TRUE(restore());
  EXPECT_EQ(test_support::read_file(source_ + "/a"), test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, WriterThatKnowsNoHolesGetsZeros) {
  make("a", 3 * mib, {{mib, mib}});
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_TRUE(restore({.hook = without_holes})) << log.all();
  EXPECT_EQ(test_support::read_file(source_ + "/a"), test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, HoleThatCannotBeMadeIsAFailure) {
  make("a", 3 * mib, {{mib, mib}});
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.hook = [](const char* what, const std::string&) {
    errno = EIO;
    return std::string(what) == "skip_to";
  }}));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/a: Input/output error\n")) << log.all();
  EXPECT_FALSE(std::filesystem::exists(target_ + "/a"));
}

TEST_F(Sparse, FailedSearchForHolesInTheMiddleSkipsTheFile) {
  make("a", 8 * mib, {{mib, mib}, {4 * mib, mib}});
  std::atomic<int> asked{0};
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [&](const char* what, const std::string&) {
    errno = EIO;
    return std::string(what) == "next_data" && ++asked > 1;
  }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(
      log.has(LM_ERROR, "Failed to back up " + source_ + "/a: reading stopped at byte 2097152: Input/output error\n"))
      << log.all();
}

TEST_F(Sparse, HoleFilledWhileItIsReadIsFlaggedAndTheSetIsValid) {
  const std::string path = make("a", 8 * mib, {{mib, mib}, {6 * mib, mib}});
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] {
                         const int fd = open(path.c_str(), O_WRONLY);
                         ASSERT_EQ(4, pwrite(fd, "more", 4, 4 * mib));
                         close(fd);
                       })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " changed while it was read.\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_CHANGED), entry("a").flags);
  ASSERT_TRUE(restore());
  EXPECT_EQ(test_support::read_file(path), test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, FileCutInAHoleKeepsItsListedLength) {
  const std::string path = make("a", 8 * mib, {{mib, mib}, {6 * mib, mib}});
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { ASSERT_EQ(0, truncate(path.c_str(), 3 * mib)); })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " became shorter while it was read.\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_CHANGED | MTF_BACKUP::CAT_CORRUPT), entry("a").flags);
  EXPECT_TRUE(restore());
  EXPECT_EQ(1u, missing_count_);
  ASSERT_EQ(0, truncate(path.c_str(), 8 * mib));
  EXPECT_EQ(test_support::read_file(path), test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, FileCutInItsDataKeepsItsListedLength) {
  const std::string path = make("a", 8 * mib, {{mib, 3 * mib}, {6 * mib, mib}});
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { ASSERT_EQ(0, truncate(path.c_str(), 2 * mib)); })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " became shorter while it was read.\n")) << log.all();
  EXPECT_TRUE(restore());
  EXPECT_EQ(1u, missing_count_);
  ASSERT_EQ(0, truncate(path.c_str(), 8 * mib));
  EXPECT_EQ(test_support::read_file(path), test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, FileCutBeforeTheHoleThatWasLookedAtIsTheShorterOne) {
  const std::string path = make("a", 8 * mib, {{mib, mib}, {6 * mib, mib}});
  auto asked = std::make_shared<std::atomic<int>>(0);
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = [&](const char* what, const std::string&) {
    if (std::string(what) == "next_data" && ++*asked == 2) {
      EXPECT_EQ(0, truncate(path.c_str(), mib));
    }
    return false;
  }}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " became shorter while it was read.\n")) << log.all();
  EXPECT_TRUE(restore());
  EXPECT_EQ(1u, missing_count_);
}

TEST_F(Sparse, FileThatGrowsIsCutAtItsListedLength) {
  const std::string path = make("a", 8 * mib, {{mib, mib}});
  const std::string before = test_support::read_file(path);
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { std::ofstream(path, std::ios::app) << noise(5000); })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " changed while it was read.\n")) << log.all();
  ASSERT_TRUE(restore());
  EXPECT_EQ(before, test_support::read_file(target_ + "/a"));
}

TEST_F(Sparse, DamagedExtentIsNotRestored) {
  make("a", 8 * mib, {{mib, mib}, {6 * mib, mib}});
  ASSERT_TRUE(back_up());
  const std::string key = "volume/0000000001.1/channel-000.mtf";
  pool_->objects[key][(1 << 20) + 77] ^= 1;
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, key)) << log.all();
  EXPECT_FALSE(std::filesystem::exists(target_ + "/a"));
}

}  // namespace
