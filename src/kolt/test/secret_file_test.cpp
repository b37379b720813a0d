#include "kolt/secret_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "support/temp_dir.h"

using kolt::File_Stamp;
using kolt::read_public_file;
using kolt::read_secret_file;
using test_support::Temp_Dir;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Secret_File_Test : public testing::Test {
 protected:
  std::string read(const std::string& path) { return read_secret_file(path, 100, content_); }
  std::string with_mode(mode_t mode) {
    const std::string path = dir_.write("secret", "abc\n");
    ::chmod(path.c_str(), mode);
    return read(path);
  }

  const Temp_Dir dir_;
  std::string content_ = "before";
};

TEST_F(Secret_File_Test, FileOfTheUserAloneIsRead) {
  for (const mode_t mode : {0400, 0600, 0440, 0640}) {
    EXPECT_EQ("", with_mode(mode)) << std::oct << mode;
    EXPECT_EQ("abc\n", content_);
  }
}

TEST_F(Secret_File_Test, FileThatOthersTouchIsRefused) {
  for (const mode_t mode : {0644, 0604, 0660, 0620, 0602, 0601, 0777}) {
    EXPECT_THAT(with_mode(mode), HasSubstr("secret' is open to others; its mode must be 0400, 0600 or 0440"))
        << std::oct << mode;
  }
  EXPECT_EQ("before", content_);
}

TEST_F(Secret_File_Test, GroupOfOthersMayNotReadIt) {
  const std::string path = dir_.write("secret", "abc");
  if (::chmod(path.c_str(), 0640) == -1 || ::chown(path.c_str(), static_cast<uid_t>(-1), 12345) == -1) {
    GTEST_SKIP() << "only root gives files to groups";
  }
  EXPECT_THAT(read(path), HasSubstr("can be read by a group of others"));
}

TEST_F(Secret_File_Test, FileOfAnotherUserIsRefused) {
  const std::string path = dir_.write("secret", "abc");
  ::chmod(path.c_str(), 0600);
  if (::chown(path.c_str(), 12345, static_cast<gid_t>(-1)) == -1) GTEST_SKIP() << "only root gives files away";
  EXPECT_THAT(read(path), HasSubstr("belongs to another user"));
}

TEST_F(Secret_File_Test, LinksAreFollowed) {
  const std::string path = dir_.write("data/secret", "abc");
  ::chmod(path.c_str(), 0400);
  ASSERT_EQ(0, ::symlink("data/secret", (dir_ / "link").c_str()));
  EXPECT_EQ("", read(dir_ / "link"));
  EXPECT_EQ("abc", content_);
}

TEST_F(Secret_File_Test, WhatIsNoFileIsRefusedWithoutAWait) {
  ASSERT_EQ(0, ::mkfifo((dir_ / "pipe").c_str(), 0600));
  EXPECT_THAT(read(dir_ / "pipe"), HasSubstr("is no regular file"));
  EXPECT_THAT(read(dir_.path()), HasSubstr("is no regular file"));
  EXPECT_THAT(read(dir_ / "none"), StartsWith("'" + (dir_ / "none") + "' cannot be read: No such file"));
  EXPECT_EQ("before", content_);
}

TEST_F(Secret_File_Test, LongestFileIsReadAndALongerOneIsNot) {
  const std::string path = dir_.write("secret", std::string(100, 'x'));
  ::chmod(path.c_str(), 0600);
  EXPECT_EQ("", read(path));
  dir_.write("secret", std::string(101, 'x'));
  EXPECT_THAT(read(path), HasSubstr("is longer than 100 bytes"));
}

TEST_F(Secret_File_Test, PublicFileMayBeReadByAll) {
  const std::string path = dir_.write("public", "abc");
  ::chmod(path.c_str(), 0644);
  EXPECT_EQ("", read_public_file(path, 100, content_));
  EXPECT_EQ("abc", content_);
}

TEST_F(Secret_File_Test, StampTellsAFileThatWasReplaced) {
  const std::string path = dir_.write("file", "abc");
  const File_Stamp before(path);
  EXPECT_TRUE(before == File_Stamp(path));
  dir_.write("new", "abd");
  ASSERT_EQ(0, std::rename((dir_ / "new").c_str(), path.c_str()));
  EXPECT_FALSE(before == File_Stamp(path));
}

TEST_F(Secret_File_Test, StampTellsAFileThatIsGone) {
  const std::string path = dir_.write("file", "abc");
  const File_Stamp before(path);
  ::unlink(path.c_str());
  EXPECT_FALSE(before == File_Stamp(path));
  EXPECT_TRUE(File_Stamp(path) == File_Stamp(dir_ / "none"));
}

}  // namespace
