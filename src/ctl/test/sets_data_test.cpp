// Verifying, restoring from the pool, exporting.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>

#include "ctl/test/sets_fixture.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace {

using namespace ctl;
using ctl_test::Sets_Fixture;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Sets_Data : public Sets_Fixture {
 protected:
  static void flip(const std::string& path, long at) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(at, at < 0 ? std::ios::end : std::ios::beg);
    const char byte = static_cast<char>(file.get() ^ 1);
    file.seekp(at, at < 0 ? std::ios::end : std::ios::beg);
    file.put(byte);
  }

  /// A set of which the backup could not read all: "bad" is not in it, the end of "cut" and the attributes of "bare"
  /// are not either.
  void back_up_with_losses() {
    write("bad", "secret");
    write("bare", "text");
    const std::string cut = write("cut", "some text");
    const test_support::Log_Capture log;
    EXPECT_FALSE(back_up({.hook = [cut](const char* what, const std::string& path) {
      const std::string operation = what + (" " + mover_test::name_of(path));
      if (operation == "read cut") {
        EXPECT_EQ(truncate(cut.c_str(), 4), 0);
      }
      errno = EACCES;
      return operation == "open bad" || operation == "read_xattrs bare";
    }}));
  }
};

TEST_F(Sets_Data, Verify_tells_what_is_whole) {
  write("file", noise(100000));
  ASSERT_TRUE(back_up() && back_up({.seq = 2}));
  for (const char* data : {"", "--data"}) {
    std::vector<std::string> words{"sets", "verify"};
    if (*data) words.push_back(data);
    EXPECT_EQ(run(words), exit_ok) << out_.str();
    EXPECT_EQ(out_.str(), "data:1.1  whole\ndata:2.1  whole\n");
  }
  EXPECT_EQ(run({"sets", "verify", "--json", "data:2"}), exit_ok);
  const json_spirit::Array sets = document().at("sets").get_array();
  ASSERT_THAT(sets, SizeIs(1));
  EXPECT_EQ(sets[0].get_obj().at("state").get_str(), "whole");
  EXPECT_THAT(err_.str(), IsEmpty());
}

TEST_F(Sets_Data, Verify_names_objects_with_offsets_and_the_files_hit) {
  write("good", "1");
  write("hit", noise(100000));
  ASSERT_TRUE(back_up({.channels = 1, .compression = COMPR_NONE}));
  ASSERT_TRUE(back_up({.seq = 2}));
  flip(set_dir("data/0000000001.1/channel-000.mtf"), 50000);
  EXPECT_EQ(run({"sets", "verify"}), exit_ok);
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_job_failed);
  EXPECT_THAT(out_.str(),
              HasSubstr("data:1.1  object data/0000000001.1/channel-000.mtf at offset 0: a frame is not what "
                        "was written\n"));
  EXPECT_THAT(out_.str(), HasSubstr("data:1.1  file " + source_ + "/hit\n"));
  EXPECT_THAT(out_.str(),
              ContainsRegex("data:1.1  damaged: 1 places in objects, [0-9]+ files hit\ndata:2.1  whole\n$"));
  EXPECT_EQ(run({"sets", "verify", "--data", "--json"}), exit_job_failed);
  const json_spirit::Object set = document().at("sets").get_array().at(0).get_obj();
  EXPECT_EQ(set.at("state").get_str(), "damaged");
  EXPECT_EQ(set.at("objects").get_array().at(0).get_obj().at("offset").get_int64(), 0);
  EXPECT_FALSE(set.at("files").get_array().empty());
}

TEST_F(Sets_Data, Verify_finds_damage_in_the_set_that_another_one_builds_on) {
  write("old", noise(100000));
  ASSERT_TRUE(back_up({.channels = 1, .compression = COMPR_NONE}));
  write("new", "new");
  ASSERT_TRUE(back_up({.seq = 2, .channels = 1, .compression = COMPR_NONE, .incremental = true}));
  EXPECT_EQ(run({"sets", "verify", "--data", "data:2"}), exit_ok) << out_.str();
  flip(set_dir("data/0000000001.1/channel-000.mtf"), 50000);
  EXPECT_EQ(run({"sets", "verify", "--data", "data:2"}), exit_job_failed);
  EXPECT_THAT(out_.str(), HasSubstr("object data/0000000001.1/channel-000.mtf at offset 0"));
  EXPECT_THAT(out_.str(), HasSubstr("data:2.1  file " + source_ + "/old\n"));
  // Also where the damaged set has had its turn.
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_job_failed);
  EXPECT_THAT(out_.str(), ContainsRegex("data:1.1  damaged: "));
  EXPECT_THAT(out_.str(), HasSubstr("data:2.1  file " + source_ + "/old\n"));
  EXPECT_THAT(out_.str(), ContainsRegex("data:2.1  damaged: "));
  EXPECT_EQ(run({"sets", "verify", "--data", "--json"}), exit_job_failed);
  const json_spirit::Array sets = document().at("sets").get_array();
  for (const json_spirit::Value& set : sets) EXPECT_EQ(set.get_obj().at("state").get_str(), "damaged");
  std::filesystem::remove(set_dir("data/0000000001.1/channel-000.mtf"));
  EXPECT_EQ(run({"sets", "verify", "data:2"}), exit_job_failed);
  EXPECT_THAT(out_.str(), HasSubstr("object data/0000000001.1/channel-000.mtf at offset 0: it is missing\n"));
  std::filesystem::remove_all(set_dir("data/0000000001.1"));
  EXPECT_EQ(run({"sets", "verify", "data:2"}), exit_job_failed);
  EXPECT_THAT(out_.str(), HasSubstr("object data/0000000001.1/commit at offset 0: it is missing\n"));
}

TEST_F(Sets_Data, Restore_brings_single_files_and_directories_back) {
  write("a/one", "1");
  write("a/two", "22");
  write("b/three", "333");
  ASSERT_TRUE(back_up());
  const std::string to = made("to");
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a/one", "--path", source_ + "/b", "--to", to}), exit_ok)
      << failure_ << err_.str();
  EXPECT_EQ(out_.str(), "Restored 4 B\n");
  EXPECT_EQ(test_support::read_file(to + "/one"), "1");
  EXPECT_EQ(test_support::read_file(to + "/b/three"), "333");
  EXPECT_FALSE(std::filesystem::exists(to + "/two"));
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a/none", "--to", to}), exit_usage);
  EXPECT_EQ(failure_, "There is no 'a/none' in set data:1.1.");
  EXPECT_EQ(run({"sets", "restore", "data", "--to", to + "/none"}), exit_usage);
}

TEST_F(Sets_Data, Restore_without_a_path_is_all_of_it) {
  test_support::make_tree(source_, {.files = 50, .bytes = 300000});
  ASSERT_TRUE(back_up());
  const std::string to = made("to");
  EXPECT_EQ(run({"sets", "restore", "data", "--to", to, "--json"}), exit_ok) << failure_ << err_.str();
  EXPECT_TRUE(document().at("complete").get_bool());
  EXPECT_EQ(differences(source_, to + "/source"), "");
}

TEST_F(Sets_Data, Verify_notes_what_the_set_lacks_and_calls_it_whole) {
  back_up_with_losses();
  EXPECT_EQ(run({"sets", "verify"}), exit_ok) << out_.str();
  EXPECT_THAT(out_.str(), HasSubstr("data:1.1  note " + source_ + "/bad: it is not in the set (Permission denied)\n"));
  EXPECT_THAT(out_.str(), HasSubstr("data:1.1  note " + source_ +
                                    "/cut: some of its data is not in the set (became "
                                    "shorter while it was read)\n"));
  EXPECT_THAT(out_.str(), HasSubstr("\ndata:1.1  whole\n"));
  EXPECT_EQ(run({"sets", "verify", "--json"}), exit_ok);
  const json_spirit::Object set = document().at("sets").get_array().at(0).get_obj();
  EXPECT_EQ(set.at("state").get_str(), "whole");
  ASSERT_THAT(set.at("notes").get_array(), SizeIs(3));
  EXPECT_EQ(set.at("notes").get_array()[0].get_obj().at("path").get_str(), source_ + "/bad");
  EXPECT_EQ(set.at("notes").get_array()[0].get_obj().at("reason").get_str(),
            "it is not in the set (Permission denied)");
}

TEST_F(Sets_Data, Restore_tells_what_the_set_lacks) {
  back_up_with_losses();
  const std::string to = made("to");
  test_support::Log_Capture log;
  EXPECT_EQ(run({"sets", "restore", "data", "--to", to}), exit_job_failed);
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/bad is not in the set: Permission denied\n")) << log.all();
  EXPECT_TRUE(log.has_containing(LM_ERROR, "/source/cut, but not as it was: some of its data is not in the set"));
  EXPECT_TRUE(log.has_containing(LM_ERROR, "/source/bare, but not as it was: its extended attributes are not in the"));
  EXPECT_EQ(out_.str(), "Restored 13 B\n");
  EXPECT_THAT(err_.str(), HasSubstr("3 entries are not in the set, or not in all: the backup could not read them.\n"));
  EXPECT_EQ(test_support::read_file(to + "/source/bare"), "text");
}

TEST_F(Sets_Data, Restore_is_not_complete_without_what_is_not_in_the_set) {
  back_up_with_losses();
  test_support::Log_Capture log;
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "bad", "--to", made("to"), "--json"}), exit_job_failed);
  EXPECT_FALSE(document().at("complete").get_bool());
  EXPECT_EQ(document().at("missing").get_int64(), 1);
  EXPECT_EQ(document().at("size").get_int64(), 0);
  EXPECT_EQ(err_.str(), "1 entries are not in the set, or not in all: the backup could not read them.\n");
}

TEST_F(Sets_Data, Restore_tells_the_size_of_what_was_restored) {
  write("hit", noise(100000));
  ASSERT_TRUE(back_up({.channels = 1, .compression = COMPR_NONE}));
  write("later", "text");
  ASSERT_TRUE(back_up({.seq = 2, .channels = 1, .compression = COMPR_NONE, .incremental = true}));
  flip(set_dir("data/0000000001.1/channel-000.mtf"), 50000);
  test_support::Log_Capture log;
  EXPECT_EQ(run({"sets", "restore", "data:2", "--path", "hit", "--path", "later", "--to", made("to")}),
            exit_job_failed);
  EXPECT_EQ(out_.str(), "Restored 4 B\n");
}

TEST_F(Sets_Data, Export_tells_what_the_set_lacks) {
  back_up_with_losses();
  for (const char* format : {"tar", "mtf"}) {
    test_support::Log_Capture log;
    EXPECT_EQ(run({"sets", "export", "data", "--format", format, dir_ / format, "--json"}), exit_job_failed);
    EXPECT_TRUE(log.has(LM_WARNING, source_ + "/bad is left out: Permission denied.\n")) << log.all();
    EXPECT_TRUE(log.has_containing(LM_WARNING, "/bare is incomplete: its extended attributes are not in the set"));
    EXPECT_EQ(document().at("left_out").get_int64(), 1);
    EXPECT_EQ(err_.str(), "1 entries are left out.\n");
  }
}

TEST_F(Sets_Data, Restore_refuses_two_paths_of_one_name) {
  write("a/x", "1");
  write("b/x", "2");
  ASSERT_TRUE(back_up());
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a/x", "--path", "b/x", "--to", made("to")}), exit_usage);
  EXPECT_THAT(failure_, HasSubstr("restore them one by one"));
}

TEST_F(Sets_Data, Restore_follows_no_link_that_is_planted_in_the_target) {
  write("a/one", "1");
  write("b/two", "2");
  ASSERT_TRUE(back_up());
  const std::string to = made("to");
  const std::string elsewhere = made("elsewhere");
  ASSERT_EQ(symlink(elsewhere.c_str(), (to + "/a").c_str()), 0);
  test_support::Log_Capture log;
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a", "--path", "b", "--to", to}), exit_job_failed);
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere));
  EXPECT_TRUE(log.has_containing(LM_ERROR, to + "/a, all below it is left out: a link or a file is in the way"))
      << log.all();
  EXPECT_EQ(test_support::read_file(to + "/b/two"), "2");
  // The target itself is what the user has chosen.
  ASSERT_EQ(symlink(elsewhere.c_str(), (dir_ / "way").c_str()), 0);
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a", "--to", dir_ / "way"}), exit_ok) << failure_;
  EXPECT_EQ(test_support::read_file(elsewhere + "/a/one"), "1");
}

TEST_F(Sets_Data, Restore_refuses_a_path_within_another) {
  write("a/x/y", "1");
  write("a/xy", "2");
  ASSERT_TRUE(back_up());
  const std::string to = made("to");
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a", "--path", "a/x/y", "--to", to}), exit_usage);
  EXPECT_EQ(failure_, "'" + source_ + "/a/x/y' lies in '" + source_ + "/a': restore the one or the other.");
  EXPECT_TRUE(std::filesystem::is_empty(to));
  EXPECT_EQ(run({"sets", "restore", "data", "--path", "a/x", "--path", "a/xy", "--to", to}), exit_ok) << failure_;
}

TEST_F(Sets_Data, An_exported_archive_extracts_to_the_same_tree) {
  test_support::make_tree(source_, {.files = 200, .bytes = 1000000});
  write(std::string(90, 'd') + "/" + std::string(200, 'f'), "long");
  write("new\nline \xff", "odd");
  write("time", "t");
  const timespec times[2] = {{1, 5}, {-2, 500000000}};
  utimensat(AT_FDCWD, (source_ + "/time").c_str(), times, 0);
  write_sparse("sparse");
  setxattr((source_ + "/sparse").c_str(), "user.odd=%", "value\n\xff", 7, 0);
  ASSERT_TRUE(back_up());
  const std::string archive = dir_ / "set.tar";
  EXPECT_EQ(run({"sets", "export", "data", "--format", "tar", archive}), exit_ok) << failure_ << err_.str();
  const std::string to = made("to");
  EXPECT_EQ(shell("tar --warning=no-timestamp --xattrs --xattrs-include='*' -xpf " + archive + " -C " + to), "");
  EXPECT_EQ(differences(source_, to + source_), "");
  struct stat st;
  ASSERT_EQ(stat((to + source_ + "/sparse").c_str(), &st), 0);
  EXPECT_LT(st.st_blocks, 4096);
  EXPECT_EQ(run({"sets", "export", "data", "--format", "tar", archive}), exit_usage);
  EXPECT_THAT(failure_, HasSubstr("File exists"));
}

TEST_F(Sets_Data, An_exported_medium_is_one_that_others_read) {
  write("docs/ten.txt", "0123456789");
  write("empty", "");
  write(std::string(250, 'n'), "x");
  write("bytes\xff", "y");
  write_sparse("sparse");
  for (int i = 0; i < 20; ++i) write("many/" + std::to_string(i), noise(static_cast<size_t>(i) * 50000));
  ASSERT_TRUE(back_up({.channels = 3}));
  write("docs/new", "new");
  ASSERT_TRUE(back_up({.seq = 2, .channels = 3, .incremental = true}));
  const std::string medium = dir_ / "set.bkf";
  EXPECT_EQ(run({"sets", "export", "data:2", "--format", "mtf", medium, "--json"}), exit_ok) << failure_ << err_.str();
  EXPECT_EQ(document().at("left_out").get_int64(), 0);
  EXPECT_EQ(static_cast<uint64_t>(document().at("size").get_int64()), std::filesystem::file_size(medium));
  const std::string listed = shell("python3 " READ_MTF " " + medium);
  EXPECT_THAT(listed, HasSubstr("V " + source_ + "\nD \n"));
  std::string expected;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(source_)) {
    const std::string path = entry.path().string().substr(source_.size() + 1);
    if (entry.is_directory())
      EXPECT_THAT(listed, HasSubstr("\nD " + path + "\n"));
    else
      EXPECT_THAT(listed, HasSubstr("\nF " + path + " " + std::to_string(entry.file_size()) + " " +
                                    shell("sha256sum < '" + entry.path().string() + "'").substr(0, 64) + "\n"));
  }
  EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), 1 + 3 + 26);
}

TEST_F(Sets_Data, A_large_file_that_is_damaged_ends_an_export) {
  test_support::Log_Capture log;
  write("a", noise(2000000));
  ASSERT_TRUE(back_up({.channels = 1, .compression = COMPR_NONE}));
  flip(set_dir("data/0000000001.1/channel-000.mtf"), 1500000);
  for (const char* format : {"tar", "mtf"}) {
    EXPECT_EQ(run({"sets", "export", "data", "--format", format, dir_ / "a"}), exit_job_failed);
    EXPECT_EQ(failure_, "The set is damaged: the export has ended early. 'sets verify --data' tells what is hit.");
    EXPECT_FALSE(std::filesystem::exists(dir_ / "a"));
  }
}

TEST_F(Sets_Data, Small_files_that_are_damaged_are_left_out_of_an_export) {
  test_support::Log_Capture log;
  for (int i = 1000; i < 2000; ++i) write(std::to_string(i), noise(1000));
  ASSERT_TRUE(back_up({.channels = 1, .compression = COMPR_NONE}));
  flip(set_dir("data/0000000001.1/channel-000.mtf"), 1500000);
  EXPECT_EQ(run({"sets", "export", "data", "--format", "tar", dir_ / "a", "--json"}), exit_job_failed) << failure_;
  const int64_t left_out = document().at("left_out").get_int64();
  EXPECT_GT(left_out, 100);
  EXPECT_LT(left_out, 600);
  EXPECT_EQ(document().at("entries").get_int64(), 1001 - left_out);
  EXPECT_EQ(err_.str(), std::to_string(left_out) + " entries are left out.\n");
  const std::string to = made("to");
  shell("tar -xpf " + (dir_ / "a") + " -C " + to);
  EXPECT_EQ(test_support::read_file(to + source_ + "/1000"), noise(1000));
  EXPECT_FALSE(std::filesystem::exists(to + source_ + "/1700"));
}

}  // namespace
