// A tree of all that other tools stumble over, moved by the callbacks that jobs use.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "k8s/job/k8s_backup_callback.h"
#include "k8s/job/k8s_restore_callback.h"
#include "kolt/pool_info.h"
#include "mtf/fs/path_converter.h"
#include "mtf_backup/mtf_backup.h"
#include "mtf_backup/mtf_restore.h"
#include "support/attributes.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

using test_support::access_list;
using test_support::capability;
using test_support::Log_Capture;

namespace {

class Hard_Tree : public ::testing::Test {
 protected:
  Hard_Tree() {
    test_support::make_tree(source_, {.files = 300, .bytes = 3'000'000});
    std::filesystem::create_directory(source_ + "/hard");
    std::filesystem::create_directory(target_);
  }

  std::string at(const std::string& name) const { return source_ + "/hard/" + name; }

  void names_of_all_bytes() const {
    for (int byte = 1; byte < 256; ++byte)
      if (byte != '/' && byte != '.') dir_.write("source/hard/" + std::string(1, static_cast<char>(byte)), "text");
  }

  void deeper_than_a_path_may_be() const {
    const std::string name(250, 'd');
    int at = open(source_.c_str(), O_DIRECTORY);
    for (int level = 0; level < 40; ++level) {
      ASSERT_EQ(0, mkdirat(at, name.c_str(), 0751));
      const int next = openat(at, name.c_str(), O_DIRECTORY | O_CLOEXEC);
      close(at);
      at = next;
      const int file = openat(at, "leaf", O_CREAT | O_WRONLY | O_CLOEXEC, 0640);
      ASSERT_EQ(4, write(file, "deep", 4));
      close(file);
    }
    ASSERT_EQ(0, symlinkat(std::string(4000, 'x').c_str(), at, "link"));
    close(at);
  }

  void files_with_holes() const {
    const auto make = [this](const char* name, off_t size, const std::vector<off_t>& pieces) {
      const int fd = open(at(name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
      ASSERT_EQ(0, ftruncate(fd, size));
      for (const off_t piece : pieces) ASSERT_EQ(5, pwrite(fd, "piece", 5, piece));
      close(fd);
    };
    make("terabyte", off_t(1) << 40, {0, off_t(1) << 30, (off_t(1) << 40) - 5});
    make("hole", 100'000'001, {});
    make("tail", 50'000'000, {12345});
  }

  void special_files() const {
    ASSERT_EQ(0, mknod(at("socket").c_str(), S_IFSOCK | 0660, 0));
    ASSERT_EQ(0, link(at("socket").c_str(), (source_ + "/links/socket").c_str()));
    ASSERT_EQ(0, link((source_ + "/links/first").c_str(), at("first-again").c_str()));
    const timespec old[2] = {{-1000, 999'999'999}, {-1000, 999'999'999}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, at("socket").c_str(), old, 0));
  }

  /// What this filesystem, or this user, cannot have is left out.
  void attributes() const {
    dir_.write("source/hard/list", "text");
    dir_.write("source/hard/program", "text");
    std::filesystem::create_directory(at("lists"));
    const auto set = [this](const char* name, const char* attribute, const std::string& value) {
      return setxattr(at(name).c_str(), attribute, value.data(), value.size(), 0) == 0;
    };
    has_lists_ =
        set("list", "system.posix_acl_access", access_list) && set("lists", "system.posix_acl_default", access_list);
    has_capabilities_ = chmod(at("program").c_str(), 04755) == 0 && set("program", "security.capability", capability);
    set("program", "user.large", std::string(3000, 'v'));
  }

  void back_up_and_restore() {
    Pool_Info pool;
    pool.url = "file://" + (dir_ / "pool");
    const auto channels = MTF_BACKUP::make_channel_factory(pool, "host/minor", Client_IO_Base::Options());
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("set-uuid");
    backup.channel_num(3);
    backup.compression(COMPR_ZSTD);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new K8S_Backup_Callback_Factory));
    backup.channel_factory(channels);
    backup.add_source(source_);
    ASSERT_TRUE(backup.backup("volume")) << backup.err_code();
    EXPECT_LT(backup.set_storage_size(), ACE_UINT64(20'000'000));

    MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
    restore.seq(1);
    restore.concurrent(3);
    restore.path_converter(
        MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var(nullptr)));
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new K8S_Restore_Callback_Factory));
    restore.channel_factory(channels);
    ASSERT_TRUE(restore.restore("volume")) << restore.err_code();
    EXPECT_EQ(backup.size(), restore.size());
  }

  const test_support::Temp_Dir dir_;
  const std::string source_ = dir_ / "source";
  const std::string target_ = dir_ / "target";
  mutable bool has_lists_ = false;
  mutable bool has_capabilities_ = false;
};

TEST_F(Hard_Tree, ComesBackEqualWithoutALine) {
  names_of_all_bytes();
  deeper_than_a_path_may_be();
  files_with_holes();
  special_files();
  attributes();
  if (HasFatalFailure()) return;
  Log_Capture log;
  back_up_and_restore();
  const test_support::Tree_Report report = test_support::compare_trees(source_, target_);
  EXPECT_THAT(report.differences, ::testing::IsEmpty());
  EXPECT_GT(report.entries, 650u);
  EXPECT_EQ("", log.all());
  struct stat terabyte;
  ASSERT_EQ(0, stat((target_ + "/hard/terabyte").c_str(), &terabyte));
  EXPECT_EQ(off_t(1) << 40, terabyte.st_size);
  EXPECT_LT(terabyte.st_blocks * 512, 1'000'000);
  if (!has_lists_ || !has_capabilities_) GTEST_SKIP() << "access lists or capabilities could not be made here";
}

}  // namespace
