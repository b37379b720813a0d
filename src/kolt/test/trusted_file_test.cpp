#include "kolt/trusted_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

class Trusted_File_Test : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, chmod(file_.c_str(), 0644)); }

  test_support::Temp_Dir dir_;
  const std::string file_ = dir_.write("sub/svc.conf", "x");
  test_support::Log_Capture log_;
};

TEST_F(Trusted_File_Test, OwnFileInOwnDirectoriesIsTrusted) {
  EXPECT_TRUE(is_trusted_file(file_)) << log_.all();
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Trusted_File_Test, RelativePathIsRefused) {
  EXPECT_FALSE(is_trusted_file("svc.conf"));
  EXPECT_TRUE(log_.has(LM_ERROR, "'svc.conf' is not trusted: the path is not absolute.\n"));
}

TEST_F(Trusted_File_Test, MissingFileIsRefused) {
  EXPECT_FALSE(is_trusted_file(dir_ / "none"));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "No such file or directory"));
}

TEST_F(Trusted_File_Test, FileThatOthersMayWriteIsRefused) {
  for (const mode_t mode : {0664, 0646}) {
    ASSERT_EQ(0, chmod(file_.c_str(), mode));
    EXPECT_FALSE(is_trusted_file(file_)) << std::oct << mode;
  }
  EXPECT_EQ(2u, log_.texts(LM_ERROR).size());
}

TEST_F(Trusted_File_Test, DirectoryAboveThatOthersMayWriteIsRefused) {
  ASSERT_EQ(0, chmod((dir_ / "sub").c_str(), 0777));
  EXPECT_FALSE(is_trusted_file(file_));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "others may write it: '" + (dir_ / "sub") + "'"));
}

TEST_F(Trusted_File_Test, StickyDirectoryCountsAsNotWritable) {
  ASSERT_EQ(0, chmod((dir_ / "sub").c_str(), 01777));
  EXPECT_TRUE(is_trusted_file(file_)) << log_.all();
}

TEST_F(Trusted_File_Test, LinkIsJudgedByWhereItLeads) {
  ASSERT_EQ(0, symlink(file_.c_str(), (dir_ / "link").c_str()));
  EXPECT_TRUE(is_trusted_file(dir_ / "link")) << log_.all();
  ASSERT_EQ(0, chmod((dir_ / "sub").c_str(), 0777));
  EXPECT_FALSE(is_trusted_file(dir_ / "link"));
}

TEST_F(Trusted_File_Test, DirectoryIsRefused) {
  EXPECT_FALSE(is_trusted_file(dir_.path()));
}

TEST_F(Trusted_File_Test, FileOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a file away";
  ASSERT_EQ(0, chown(file_.c_str(), 12345, 12345));
  EXPECT_FALSE(is_trusted_file(file_));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "it belongs to another user"));
}

}  // namespace
