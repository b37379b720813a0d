#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "host/host_manager.h"
#include "support/log_capture.h"
#include "support/rsa_key_pair.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::RSA_Key_Pair;
using test_support::Temp_Dir;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class Host_Key : public ::testing::Test {
 protected:
  std::string write_key(const std::string& content, mode_t mode = 0400) const {
    const std::string path = dir_.write("key.pem", content);
    ::chmod(path.c_str(), mode);
    return path;
  }

  static std::string loaded() {
    const auto& key = Host_Manager::instance()->rsa_prvkey();
    return std::string(key.begin(), key.end());
  }

  /// The one line that tells why @a path was refused; the key stays as it was.
  static std::string refusal(const std::string& path) {
    const std::string before = loaded();
    const Log_Capture log;
    EXPECT_FALSE(Host_Manager::instance()->load_rsa_prvkey(path));
    EXPECT_EQ(loaded(), before);
    EXPECT_THAT(log.lines(), SizeIs(1)) << log.all();
    const auto errors = log.texts(LM_ERROR);
    return errors.empty() ? "" : errors.front();
  }

  const Temp_Dir dir_;
};

TEST_F(Host_Key, ThereIsOneManagerInAProcess) {
  EXPECT_NE(Host_Manager::instance(), nullptr);
  EXPECT_EQ(Host_Manager::instance(), Host_Manager::instance());
}

TEST_F(Host_Key, IsTheTextOfItsFile) {
  const RSA_Key_Pair keys;
  const Log_Capture log;
  for (const mode_t mode : {0400, 0600}) {
    ASSERT_TRUE(Host_Manager::instance()->load_rsa_prvkey(write_key(keys.private_pem, mode)));
    EXPECT_EQ(loaded(), keys.private_pem);
    ::unlink((dir_ / "key.pem").c_str());
  }
  EXPECT_TRUE(log.has(LM_INFO, "Host key with 2048 bits loaded from '" + (dir_ / "key.pem") + "'.\n"));
  EXPECT_EQ(log.all().find(keys.private_pem.substr(60, 20)), std::string::npos);
}

TEST_F(Host_Key, ReplacesTheFormerOne) {
  const RSA_Key_Pair other;
  ASSERT_TRUE(Host_Manager::instance()->load_rsa_prvkey(write_key(RSA_Key_Pair().private_pem, 0600)));
  ASSERT_TRUE(Host_Manager::instance()->load_rsa_prvkey(write_key(other.private_pem, 0600)));
  EXPECT_EQ(loaded(), other.private_pem);
}

TEST_F(Host_Key, MayStandBehindALink) {
  const RSA_Key_Pair keys;
  write_key(keys.private_pem);
  ASSERT_EQ(::symlink("key.pem", (dir_ / "link").c_str()), 0);
  EXPECT_TRUE(Host_Manager::instance()->load_rsa_prvkey(dir_ / "link"));
}

TEST_F(Host_Key, IsRefusedWhenOthersMayAccessIt) {
  const RSA_Key_Pair keys;
  for (const mode_t mode : {0640, 0604, 0401, 0410}) {
    EXPECT_THAT(refusal(write_key(keys.private_pem, mode)), HasSubstr("others may access it"));
    ::unlink((dir_ / "key.pem").c_str());
  }
  EXPECT_THAT(refusal(write_key(keys.private_pem, 0620)), HasSubstr("others may write it"));
}

TEST_F(Host_Key, IsRefusedInADirectoryThatOthersMayWrite) {
  const std::string path = write_key(RSA_Key_Pair().private_pem);
  ::chmod(dir_.path().c_str(), 0777);
  EXPECT_THAT(refusal(path), HasSubstr("others may write it"));
}

TEST_F(Host_Key, IsRefusedWhenItBelongsToAnotherUser) {
  const std::string path = write_key(RSA_Key_Pair().private_pem);
  if (::chown(path.c_str(), 1234, static_cast<gid_t>(-1)) != 0) GTEST_SKIP() << "only root may give files away";
  EXPECT_THAT(refusal(path), HasSubstr("it belongs to another user"));
}

TEST_F(Host_Key, IsARegularFile) {
  EXPECT_THAT(refusal(dir_.path()), HasSubstr("it is no regular file"));
  ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  EXPECT_THAT(refusal(dir_ / "fifo"), HasSubstr("it is no regular file"));
  EXPECT_THAT(refusal("/dev/null"), HasSubstr("it is no regular file"));
}

TEST_F(Host_Key, IsRefusedWhenItIsMissing) {
  EXPECT_THAT(refusal(dir_ / "missing"), HasSubstr("No such file"));
}

TEST_F(Host_Key, WhatIsNoUsableKeyIsRefused) {
  const std::string text = "holds no RSA private key of at least 2048 bits without a pass phrase.\n";
  for (const std::string& content : {std::string(), std::string("no key"), RSA_Key_Pair().public_pem,
                                     RSA_Key_Pair(1024).private_pem, std::string(100000, 'x')}) {
    EXPECT_EQ(refusal(write_key(content)), "'" + (dir_ / "key.pem") + "' " + text);
    ::unlink((dir_ / "key.pem").c_str());
  }
}

}  // namespace
