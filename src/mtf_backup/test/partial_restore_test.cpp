// Of a set no more is read than what is restored takes.
#include "mtf_backup/test/counting_factory.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/temp_dir.h"

namespace {

class Partial_Restore : public mover_test::Mover_Fixture {
 protected:
  /// @param paths  below the source; each goes to the same place below the target.
  bool restore_paths(const std::vector<std::string>& paths) {
    json_spirit::Array select;
    for (const std::string& path : paths) {
      json_spirit::Object element;
      element["dir"] = source_ + "/" + path;
      select.push_back(element);
    }
    factory_ = std::make_shared<mover_test::Counting_Factory>(pool_);
    MTF_Restore restore{MTF::Event_Handler_var(), ACE_Log_Msg_Callback_var()};
    restore.target_location("/");
    restore.restore_select(&select);
    restore.seq(1);
    restore.path_converter(
        MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var(nullptr)));
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new mover_test::Posix_Restore_Factory));
    restore.channel_factory(factory_);
    const bool ok = restore.restore("volume");
    code_ = restore.err_code();
    size_ = restore.size();
    return ok;
  }
  std::string restored() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(target_))
      names.push_back(entry.path().string().substr(target_.size() + 1));
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) text += name + " ";
    return text;
  }

  std::shared_ptr<mover_test::Counting_Factory> factory_;  // of the last restore
};

TEST_F(Partial_Restore, One_file_takes_its_frames_and_its_part_of_the_catalog) {
  for (int i = 10; i < 40; ++i) write("big/" + std::to_string(i), noise(1 << 20, static_cast<unsigned>(i)));
  for (int i = 10000; i < 16000; ++i) write("many/" + std::to_string(i), "");
  ASSERT_TRUE(back_up());
  uint64_t catalog = 0;
  for (const auto& [key, bytes] : pool_->objects)
    if (key.ends_with("/catalog")) catalog = bytes.size();
  ASSERT_TRUE(restore_paths({"big/25"}));
  EXPECT_EQ(test_support::read_file(target_ + "/big/25"), test_support::read_file(source_ + "/big/25"));
  EXPECT_EQ(restored(), "big big/25 ");
  // Two frames hold it; some may be fetched ahead. The catalog is looked into three times.
  EXPECT_LT(factory_->counting.bytes_read(), uint64_t(8) << 20);
  ASSERT_TRUE(restore_paths({"many/12345"}));
  EXPECT_LT(factory_->counting.bytes_read(), (uint64_t(4) << 20) + 3 * catalog / 2);
}

TEST_F(Partial_Restore, Directories_files_and_overlapping_paths_are_each_restored_once) {
  for (const char* name : {"a/x", "a/y", "a/b/z", "ab", "c/d/e", "f"}) write(name, name);
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore_paths({"a/b", "f", "a", "c/d/e", "a/x"}));
  EXPECT_EQ(restored(), "a a/b a/b/z a/x a/y c c/d c/d/e f ");
  EXPECT_EQ(size_, 3u + 3 + 5 + 5 + 1);
}

TEST_F(Partial_Restore, A_further_name_alone_is_restored_with_the_data) {
  write("a/first", "content");
  std::filesystem::create_directory(source_ + "/b");
  std::filesystem::create_hard_link(source_ + "/a/first", source_ + "/b/second");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore_paths({"b"}));
  EXPECT_EQ(test_support::read_file(target_ + "/b/second"), "content");
}

TEST_F(Partial_Restore, What_is_not_there_is_nothing_to_restore) {
  write("a/x", "1");
  ASSERT_TRUE(back_up());
  EXPECT_FALSE(restore_paths({"a/none", "b", "a/x/y"}));
  EXPECT_EQ(code_, MTF::E_NO_FILES_RESTORED);
  EXPECT_EQ(restored(), "");
}

TEST_F(Partial_Restore, Directories_get_their_times_whatever_part_was_asked_for) {
  write("a/b/x", "1");
  const timespec times[2] = {{1, 2}, {1000000000, 3}};
  utimensat(AT_FDCWD, (source_ + "/a/b").c_str(), times, 0);
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore_paths({"a/b"}));
  struct stat st;
  ASSERT_EQ(stat((target_ + "/a/b").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtim.tv_sec, 1000000000);
  EXPECT_EQ(st.st_mtim.tv_nsec, 3);
}

}  // namespace
