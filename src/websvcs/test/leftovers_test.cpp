#include "websvcs/leftovers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "kolt/mount_table.h"
#include "kolt/posix_fd.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

using testing::IsEmpty;

namespace {

const std::string base = "/var/cache/velmora/tessarin/k8s";
const std::string data = base + "/data";

class Leftovers_Test : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(data); }
  void TearDown() override { std::filesystem::remove_all(base); }

  void bind(const std::string& target) {
    std::filesystem::create_directories(target);
    ASSERT_EQ(0, mount(source_.path().c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr)) << strerror(errno);
  }
  static std::vector<std::string> mounts() {
    std::vector<std::string> list;
    EXPECT_TRUE(mounts_below(data.c_str(), list));
    return list;
  }

  test_support::Temp_Dir source_;
  const std::string file_ = source_.write("sub/precious", "data");
  test_support::Log_Capture log_;
  Leftovers leftovers_;
};

TEST_F(Leftovers_Test, BindsAndTheDirectoryGoAndTheSourceStays) {
  bind(data + "/pvc-1");
  bind(data + "/pvc-2");
  bind(data + "/deep/er");
  leftovers_.sweep();
  EXPECT_THAT(mounts(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(data));
  EXPECT_EQ("data", test_support::read_file(file_));
  EXPECT_THAT(log_.texts(LM_ERROR), IsEmpty());
}

TEST_F(Leftovers_Test, MountsOnMountsGoDeepestFirst) {
  bind(data + "/pvc");
  bind(data + "/pvc/sub");
  bind(data + "/pvc");
  leftovers_.sweep();
  EXPECT_THAT(mounts(), IsEmpty());
  EXPECT_EQ("data", test_support::read_file(file_));
  EXPECT_THAT(log_.texts(LM_ERROR), IsEmpty());
}

TEST_F(Leftovers_Test, BindInUseIsTakenDownAndItsSourceStays) {
  bind(data + "/pvc");
  const Posix_Fd in_use(open((data + "/pvc/sub").c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_TRUE(in_use);
  leftovers_.sweep();
  EXPECT_THAT(mounts(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(data));
  EXPECT_EQ("data", test_support::read_file(file_));
}

TEST_F(Leftovers_Test, MountsElsewhereStay) {
  const std::string other = base + "/other";
  bind(other);
  leftovers_.sweep();
  EXPECT_TRUE(std::filesystem::exists(other + "/sub/precious"));
  EXPECT_EQ(0, umount2(other.c_str(), MNT_DETACH));
}

TEST_F(Leftovers_Test, WithoutLeftoversNothingHappens) {
  std::filesystem::remove_all("/var/cache/velmora");
  leftovers_.sweep();
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(data));
}

TEST_F(Leftovers_Test, WhatAnotherAgentUsesIsLeftAlone) {
  leftovers_.sweep();
  bind(data + "/pvc");
  Leftovers second;
  second.sweep();
  EXPECT_EQ(1u, mounts().size());
  EXPECT_TRUE(log_.has(LM_WARNING, "'" + base + "' is not swept: another agent uses it\n"));
  EXPECT_EQ(0, umount2((data + "/pvc").c_str(), MNT_DETACH));
}

}  // namespace
