#include "websvcs/state_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

class State_Dir_Test : public testing::Test {
 protected:
  mode_t mode(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 07777;
  }

  test_support::Log_Capture log_;
  test_support::Temp_Dir dir_;
  const std::string path_ = dir_ / "a/state";
};

TEST_F(State_Dir_Test, IsMadeForItsOwnerAlone) {
  State_Dir state;
  ASSERT_EQ(0, state.open(path_));
  EXPECT_EQ(0700u, mode(path_));
}

TEST_F(State_Dir_Test, OneAgentAtATimeHasIt) {
  State_Dir second;
  {
    State_Dir first;
    ASSERT_EQ(0, first.open(path_));
    EXPECT_EQ(-1, second.open(path_));
    EXPECT_TRUE(log_.has(LM_ERROR, "Another agent has the state directory '" + path_ + "'.\n"));
  }
  EXPECT_EQ(0, second.open(path_));
}

TEST_F(State_Dir_Test, DirectoryThatOthersMayWriteIsRefused) {
  ASSERT_EQ(0, mkdir((dir_ / "open").c_str(), 0700));
  ASSERT_EQ(0, chmod((dir_ / "open").c_str(), 0777));
  State_Dir state;
  EXPECT_EQ(-1, state.open(dir_ / "open"));
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
}

TEST_F(State_Dir_Test, PlaceThatIsNoDirectoryIsRefused) {
  State_Dir state;
  EXPECT_EQ(-1, state.open(dir_.write("file", "x")));
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
}

TEST_F(State_Dir_Test, HostUUIDIsMadeOnceAndStays) {
  State_Dir state;
  ASSERT_EQ(0, state.open(path_));
  std::string first, second;
  ASSERT_EQ(0, state.host_uuid(first));
  ASSERT_EQ(0, state.host_uuid(second));
  EXPECT_THAT(first, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
  EXPECT_EQ(first, second);
  EXPECT_EQ(0600u, mode(path_ + "/host_uuid"));
}

TEST_F(State_Dir_Test, EachHostHasAUUIDAndATokenOfItsOwn) {
  State_Dir one, other;
  ASSERT_EQ(0, one.open(path_));
  ASSERT_EQ(0, other.open(dir_ / "other"));
  std::string a, b;
  ASSERT_EQ(0, one.host_uuid(a));
  ASSERT_EQ(0, other.host_uuid(b));
  EXPECT_NE(a, b);
  ASSERT_EQ(0, one.token(a));
  ASSERT_EQ(0, other.token(b));
  EXPECT_NE(a, b);
  EXPECT_EQ(43u, a.size());
}

TEST_F(State_Dir_Test, TokenOfTheAdministratorIsTaken) {
  State_Dir state;
  ASSERT_EQ(0, state.open(path_));
  ASSERT_EQ(0, chmod(dir_.write("a/state/token", "my own\n").c_str(), 0600));
  std::string token;
  ASSERT_EQ(0, state.token(token));
  EXPECT_EQ("my own", token);
}

TEST_F(State_Dir_Test, TokenThatOthersMayReadIsRefused) {
  State_Dir state;
  ASSERT_EQ(0, state.open(path_));
  ASSERT_EQ(0, chmod(dir_.write("a/state/token", "known").c_str(), 0644));
  std::string token = "untouched";
  EXPECT_EQ(-1, state.token(token));
  EXPECT_EQ("untouched", token);
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
}

TEST_F(State_Dir_Test, EmptyTokenFileIsAFailureAndNotANewToken) {
  State_Dir state;
  ASSERT_EQ(0, state.open(path_));
  ASSERT_EQ(0, chmod(dir_.write("a/state/token", "\n").c_str(), 0600));
  std::string token;
  EXPECT_EQ(-1, state.token(token));
  EXPECT_EQ("\n", test_support::read_file(path_ + "/token"));
}

}  // namespace
