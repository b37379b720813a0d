#include "mtf_backup/backup/read_ahead.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>

#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// A source that is read ahead from the first entry on.
class Reading_Ahead : public Mover_Fixture {
 protected:
  typedef std::chrono::steady_clock Clock;

  /// Directories with this many files each.
  void make_wide(int directories, int files) const {
    for (int i = 0; i < directories; ++i)
      for (int j = 0; j < files; ++j) write("d" + std::to_string(i) + "/f" + std::to_string(j), "some text");
  }
};

TEST_F(Reading_Ahead, GivesTheSameEntriesOfAllKinds) {
  test_support::make_tree(source_, {.files = 700, .bytes = 6'000'000});
  Log_Capture log;
  ASSERT_TRUE(back_up({.compression = COMPR_ZSTD, .channels = 3, .read_ahead = true})) << log.all();
  const auto ahead = sets().at(0).summary;
  ASSERT_TRUE(back_up({.compression = COMPR_ZSTD, .channels = 3, .seq = 1})) << log.all();
  const auto plain = sets().at(1).summary;
  EXPECT_EQ(plain.file_count, ahead.file_count);
  EXPECT_EQ(plain.dir_count, ahead.dir_count);
  EXPECT_EQ(plain.total_size, ahead.total_size);
  ASSERT_TRUE(restore()) << log.all();
  EXPECT_EQ("", differences());
  EXPECT_EQ("", log.all());
}

TEST_F(Reading_Ahead, KeepsWhatHasNotChanged) {
  make_wide(20, 30);
  ASSERT_TRUE(back_up({.channels = 2, .read_ahead = true}));
  write("d7/f7", "another text");
  Log_Capture log;
  ASSERT_TRUE(back_up({.channels = 2, .seq = 1, .incremental = true, .read_ahead = true})) << log.all();
  ASSERT_TRUE(restore({.seq = 2})) << log.all();
  EXPECT_EQ("", differences());
}

TEST_F(Reading_Ahead, TreeThatVanishesUnderItIsNoFailure) {
  make_wide(40, 50);
  write("zz", "stays");
  auto reads = std::make_shared<std::atomic<int>>(0);
  const auto remove_all = [=, this](const char* operation, const std::string&) {
    if (std::string_view(operation) == "open" && ++*reads == 100)
      for (int i = 10; i < 40; ++i) std::filesystem::remove_all(source_ + "/d" + std::to_string(i));
    return false;
  };
  Log_Capture log;
  EXPECT_TRUE(back_up({.channels = 2, .hook = remove_all, .read_ahead = true})) << log.all();
  ASSERT_TRUE(restore()) << log.all();
  EXPECT_EQ("stays", test_support::read_file(target_ + "/zz"));
  EXPECT_EQ("some text", test_support::read_file(target_ + "/d0/f0"));
}

TEST_F(Reading_Ahead, CancelStopsItWithinASecond) {
  make_wide(60, 60);
  Clock::time_point cancelled;
  prepare = [&](Test_Handler& handler) {
    handler.cancel_when = [&] {
      cancelled = Clock::now();
      return true;
    };
  };
  const auto slow = [](const char*, const std::string&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return false;
  };
  EXPECT_FALSE(back_up({.hook = slow, .read_ahead = true}));
  EXPECT_LT(Clock::now() - cancelled, std::chrono::seconds(1));
  EXPECT_TRUE(sets().empty());
}

/// The stage alone, with a batch of the test's own.
class Read_Ahead_Stage : public ::testing::Test {
 protected:
  Read_Ahead_Stage() {
    MTF_BACKUP::Source source;
    source.path = dir_.path();
    source.root = Posix_Fd(::open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    sources_.push_back(std::move(source));
  }

  MTF_BACKUP::Work_Item item(const std::string& name, mode_t mode) const {
    MTF_BACKUP::Work_Item item;
    item.directory = std::make_shared<const std::string>();
    item.name = name;
    item.stat.mode = mode;
    item.stat.size = 5;
    return item;
  }
  /// Whether somebody has it open for reading right now.
  static bool has_reader(const std::string& fifo) {
    const Posix_Fd writer(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    return static_cast<bool>(writer);
  }

  const test_support::Temp_Dir dir_;
  std::vector<MTF_BACKUP::Source> sources_;
  MTF_BACKUP::Run_State state_;
};

TEST_F(Read_Ahead_Stage, FifosAreNotOpened) {
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  const auto batch = std::make_shared<MTF_BACKUP::Work_Batch>();
  for (int i = 0; i < 200; ++i) batch->items.push_back(item("fifo", S_IFIFO | 0600));
  MTF_BACKUP::Read_Ahead stage(sources_, state_, true);
  stage.directory(0, "");
  stage.files(batch);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  while (std::chrono::steady_clock::now() < end) ASSERT_FALSE(has_reader(fifo));
}

TEST_F(Read_Ahead_Stage, LinkInPlaceOfAFileOrDirectoryIsNotFollowed) {
  const test_support::Temp_Dir elsewhere;
  const std::string fifo = elsewhere / "fifo";
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  ASSERT_EQ(0, ::symlink(fifo.c_str(), (dir_ / "file").c_str()));
  ASSERT_EQ(0, ::symlink(elsewhere.path().c_str(), (dir_ / "dir").c_str()));
  const auto batch = std::make_shared<MTF_BACKUP::Work_Batch>();
  for (int i = 0; i < 200; ++i) {
    batch->items.push_back(item("file", S_IFREG | 0600));
    batch->items.push_back(item("fifo", S_IFREG | 0600));
    batch->items.back().directory = std::make_shared<const std::string>("dir");
  }
  MTF_BACKUP::Read_Ahead stage(sources_, state_, true);
  stage.directory(0, "dir");
  stage.files(batch);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  while (std::chrono::steady_clock::now() < end) ASSERT_FALSE(has_reader(fifo));
}

TEST_F(Read_Ahead_Stage, IsWantedWhileSomebodyWaitsAndABitLonger) {
  MTF_BACKUP::Read_Ahead stage(sources_, state_, false);
  EXPECT_FALSE(stage.wanted());
  stage.note(false);
  EXPECT_FALSE(stage.wanted());
  stage.note(true);
  for (int i = 0; i < 10; ++i) stage.note(false);
  EXPECT_TRUE(stage.wanted());
  for (int i = 0; i < 100; ++i) stage.note(false);
  EXPECT_FALSE(stage.wanted());
}

TEST_F(Read_Ahead_Stage, EndsWithWorkLeft) {
  const auto batch = std::make_shared<MTF_BACKUP::Work_Batch>();
  for (int i = 0; i < 5000; ++i) batch->items.push_back(item("missing", S_IFREG | 0600));
  const std::weak_ptr<const MTF_BACKUP::Work_Batch> kept = batch;
  {
    MTF_BACKUP::Read_Ahead stage(sources_, state_, true);
    for (int i = 0; i < 50; ++i) stage.files(batch);
  }
  EXPECT_EQ(1, kept.use_count()) << "a thread or a task still holds the work";
}

}  // namespace
