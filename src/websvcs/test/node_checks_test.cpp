#include "websvcs/node_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "kolt/mount_table.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

using testing::HasSubstr;

namespace {

class Node_Checks_Test : public testing::Test {
 protected:
  Node_Checks_Test() {
    for (const std::string& directory : {paths_.kubelet_dir, paths_.state_dir}) mkdir(directory.c_str(), 0700);
  }
  void TearDown() override {
    std::vector<std::string> mounts;
    ASSERT_TRUE(mounts_below(paths_.state_dir.c_str(), mounts));
    EXPECT_THAT(mounts, testing::IsEmpty());
  }

  /// What a check finds wrong.
  std::string fault(const std::string& name) {
    for (const Check& check : node_checks(paths_))
      if (check.name == name) return check.fault();
    return "there is no check of that name";
  }

  test_support::Log_Capture log_;
  test_support::Temp_Dir dir_;
  Node_Paths paths_{dir_ / "kubelet", dir_ / "private", dir_ / "state", ""};
};

TEST_F(Node_Checks_Test, AllIsFineOnANodeThatIsSetUp) {
  for (const char* name : {"kubelet", "bind", "private", "state"}) EXPECT_EQ("", fault(name)) << name;
  EXPECT_EQ(log_.all(), "");
}

TEST_F(Node_Checks_Test, NothingIsLeftBehind) {
  for (const Check& check : node_checks(paths_)) check.fault();
  EXPECT_TRUE(std::filesystem::is_empty(paths_.state_dir));
  EXPECT_TRUE(std::filesystem::is_empty(paths_.private_dir));
}

TEST_F(Node_Checks_Test, KubeletsDirectoryHasToBeThere) {
  paths_.kubelet_dir += "/none";
  EXPECT_EQ("cannot read '" + paths_.kubelet_dir + "': No such file or directory", fault("kubelet"));
}

TEST_F(Node_Checks_Test, MountThatReceivesNoMountsIsToldFromOneThatDoes) {
  const char* const path = paths_.kubelet_dir.c_str();
  ASSERT_EQ(0, mount("none", path, "tmpfs", 0, nullptr));
  ASSERT_EQ(0, mount(nullptr, path, nullptr, MS_PRIVATE, nullptr));
  EXPECT_EQ("'" + paths_.kubelet_dir + "' is mounted without propagation, volumes that are mounted later are not seen",
            fault("propagation"));
  ASSERT_EQ(0, mount(nullptr, path, nullptr, MS_SHARED, nullptr));
  EXPECT_EQ("", fault("propagation"));
  umount2(path, MNT_DETACH);
}

TEST_F(Node_Checks_Test, BindOfARunThatWasKilledIsTakenDown) {
  const std::string place = paths_.state_dir + "/self-check";
  std::filesystem::create_directories(place + "/from");
  std::filesystem::create_directories(place + "/to");
  ASSERT_EQ(0, mount((place + "/from").c_str(), (place + "/to").c_str(), nullptr, MS_BIND, nullptr));
  EXPECT_EQ("", fault("bind"));
  EXPECT_FALSE(std::filesystem::exists(place));
}

TEST_F(Node_Checks_Test, BindIsTriedOnce) {
  const auto checks = node_checks(paths_);
  const auto bind = std::find_if(checks.begin(), checks.end(), [](const Check& check) { return check.name == "bind"; });
  EXPECT_EQ("", bind->fault());
  std::filesystem::remove(paths_.state_dir);
  EXPECT_EQ("", bind->fault());
}

TEST_F(Node_Checks_Test, DirectoriesHaveToBeWritable) {
  const std::string read_only = dir_ / "read-only";
  mkdir(read_only.c_str(), 0700);
  ASSERT_EQ(0, mount("none", read_only.c_str(), "tmpfs", MS_RDONLY, nullptr));
  paths_.private_dir = paths_.state_dir = read_only;
  EXPECT_EQ("cannot make '" + read_only + "/self-check': Read-only file system", fault("private"));
  EXPECT_EQ("cannot make '" + read_only + "/self-check.tmp': Read-only file system", fault("state"));
  EXPECT_THAT(fault("bind"), HasSubstr("Read-only file system"));
  umount2(read_only.c_str(), MNT_DETACH);
}

TEST_F(Node_Checks_Test, FullStateDirectoryIsFound) {
  ASSERT_EQ(0, mount("none", paths_.state_dir.c_str(), "tmpfs", 0, "size=8k"));
  FILE* const file = fopen((paths_.state_dir + "/filler").c_str(), "w");
  const std::string block(64 * 1024, 'x');
  (void)!fwrite(block.data(), 1, block.size(), file);
  fclose(file);
  EXPECT_EQ("cannot write '" + paths_.state_dir + "/self-check.tmp': No space left on device", fault("state"));
  umount2(paths_.state_dir.c_str(), MNT_DETACH);
}

TEST_F(Node_Checks_Test, PoolIsCheckedOnlyWhereOneIsNamed) {
  EXPECT_EQ(5u, node_checks(paths_).size());
  paths_.pool = "file://" + (dir_ / "pool");
  EXPECT_EQ("the pool cannot be reached: No such file or directory", fault("pool"));
  mkdir((dir_ / "pool").c_str(), 0700);
  EXPECT_EQ("", fault("pool"));
  dir_.write("pool/object", "x");
  EXPECT_EQ("", fault("pool"));
}

TEST_F(Node_Checks_Test, PoolMayBeDescribedByAFile) {
  mkdir((dir_ / "pool").c_str(), 0700);
  paths_.pool = dir_.write("pool.json", R"({"url":"file://)" + (dir_ / "pool") + R"("})");
  EXPECT_EQ("", fault("pool"));
  dir_.write("pool.json", "no JSON");
  EXPECT_EQ("'" + paths_.pool + "' cannot be read as the description of a pool", fault("pool"));
  dir_.write("pool.json", R"({"url":"gopher://x"})");
  EXPECT_EQ("the description of the pool is refused", fault("pool"));
}

}  // namespace
