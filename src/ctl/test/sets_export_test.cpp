// Where an export goes, and what ends it.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/sets/export_file.h"
#include "ctl/sets/run_view.h"
#include "ctl/test/sets_fixture.h"

namespace {

using namespace ctl;
using ::testing::IsEmpty;

class Export_File_Test : public ::testing::Test {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) names.push_back(entry.path().filename());
    return names;
  }
  static void put(const Export_File& file, const std::string& text) {
    ASSERT_EQ(write(file.fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  const test_support::Temp_Dir dir_;
  const std::string path_ = dir_ / "set.tar";
};

TEST_F(Export_File_Test, A_file_has_its_name_once_it_is_whole) {
  {
    Export_File file(path_);
    put(file, "whole");
    EXPECT_FALSE(std::filesystem::exists(path_));
    file.finish();
  }
  EXPECT_EQ(test_support::read_file(path_), "whole");
  EXPECT_EQ(names(), std::vector<std::string>{"set.tar"});
  EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
}

TEST_F(Export_File_Test, A_file_that_is_not_finished_leaves_nothing) {
  { put(Export_File(path_), "half"); }
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Export_File_Test, A_killed_run_leaves_nothing_below_the_name) {
  const pid_t child = fork();
  if (child == 0) {
    const Export_File file(path_);
    put(file, "half");
    raise(SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_FALSE(std::filesystem::exists(path_));
  // What it left is in nobody's way.
  Export_File(path_).finish();
  EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(Export_File_Test, A_file_that_is_there_stays_as_it_is) {
  Export_File file(path_);
  dir_.write("set.tar", "mine");
  EXPECT_THROW(file.finish(), Failure);
  EXPECT_EQ(test_support::read_file(path_), "mine");
  EXPECT_THROW(Export_File{path_}, Failure);
  std::filesystem::create_symlink("nowhere", dir_ / "link");
  EXPECT_THROW(Export_File{dir_ / "link"}, Failure);
}

TEST_F(Export_File_Test, A_reader_of_the_messages_that_goes_away_does_not_end_it) {
  {
    const Export_File file(path_);
    raise(SIGPIPE);
  }
  EXPECT_EXIT(raise(SIGPIPE), ::testing::KilledBySignal(SIGPIPE), "") << "afterwards it ends the program again";
}

TEST(Run_View_Test, A_hang_up_ends_a_run_unless_it_is_ignored) {
  std::ostringstream out;
  for (const bool ignored : {false, true}) {
    const auto before = signal(SIGHUP, ignored ? SIG_IGN : SIG_DFL);
    {
      const Run_View view(out, out, true);
      raise(SIGHUP);
      EXPECT_EQ(view.interrupted(), !ignored);
    }
    EXPECT_EQ(signal(SIGHUP, before), ignored ? SIG_IGN : SIG_DFL);
  }
}

}  // namespace
