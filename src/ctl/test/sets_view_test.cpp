// Listing, showing and finding.
#include <unistd.h>

#include <ctime>

#include "ctl/sets/entry_view.h"
#include "ctl/sets/set_name.h"
#include "ctl/test/sets_fixture.h"

namespace {

using namespace ctl;
using ctl_test::Sets_Fixture;
using MTF_BACKUP::Pool_Key;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

TEST(Entry_View, Every_flag_has_a_name) {
  MTF_BACKUP::Catalog_Entry entry;
  entry.flags = MTF_BACKUP::CAT_CORRUPT | MTF_BACKUP::CAT_CHANGED | MTF_BACKUP::CAT_SKIPPED | MTF_BACKUP::CAT_BARE;
  const json_spirit::Object document = entry_document(entry, "a");
  std::string names;
  for (const json_spirit::Value& name : document.at("flags").get_array()) names += name.get_str() + " ";
  EXPECT_EQ(names, "corrupt changed skipped bare ");
}

class Set_Names : public ::testing::Test {
 protected:
  void add(const std::string& host, const std::string& resource, const std::string& dir) {
    Pool_Key key{host, resource, {}};
    ASSERT_TRUE(parse_set_key(dir + "/commit", key.set));
    keys_.push_back(key);
  }
  std::string found(const std::string& text) {
    try {
      const Pool_Key key = find_set(keys_, text);
      return key.host + " " + key.resource + " " + key.set.dir();
    } catch (const Failure& failure) {
      return std::to_string(failure.code()) + " " + failure.what();
    }
  }

  std::vector<Pool_Key> keys_;
};

TEST_F(Set_Names, A_name_alone_is_its_newest_set) {
  add("h", "r", "data/0000000009.1");
  add("h", "r", "data/0000000010.1");
  add("h", "r", "data/0000000010.2");
  EXPECT_EQ(found("data"), "h r data/0000000010.2");
  EXPECT_EQ(found("data:9"), "h r data/0000000009.1");
  EXPECT_EQ(found("data:10"), "h r data/0000000010.2");
  EXPECT_EQ(found("data:10.1"), "h r data/0000000010.1");
  EXPECT_EQ(found("data/0000000010.1"), "h r data/0000000010.1");
}

TEST_F(Set_Names, A_name_is_told_raw_or_as_it_stands_in_the_pool) {
  add("h", "r", "a%2Fb%FF/0000000001.1");
  EXPECT_EQ(found("a/b\xff"), "h r a%2Fb%FF/0000000001.1");
  EXPECT_EQ(found("a%2Fb%FF:1"), "h r a%2Fb%FF/0000000001.1");
}

TEST_F(Set_Names, A_name_may_end_like_a_number) {
  add("h", "r", "a%3A5/0000000001.1");
  EXPECT_EQ(found("a:5"), "h r a%3A5/0000000001.1");
  EXPECT_EQ(found("a:5:1"), "h r a%3A5/0000000001.1");
  EXPECT_EQ(parse_set_name("a:5.0").name, "a:5.0");
  EXPECT_EQ(parse_set_name("a:4294967296").name, "a:4294967296");
  EXPECT_EQ(parse_set_name(":5").name, ":5");
  EXPECT_EQ(parse_set_name("a/5").name, "a/5");
}

TEST_F(Set_Names, What_is_not_there_is_told_with_what_is) {
  for (int seq = 10; seq < 22; ++seq) add("h", "r", "data/00000000" + std::to_string(seq) + ".1");
  EXPECT_EQ(found("other"), "5 There is no set 'other' in the pool.");
  EXPECT_EQ(
      found("data:7"),
      "5 There is no set 'data:7'. Of this name there are ... 12.1 13.1 14.1 15.1 16.1 17.1 18.1 19.1 20.1 21.1.");
  EXPECT_EQ(found("data:10.2").substr(0, 31), "5 There is no set 'data:10.2'. ");
}

TEST_F(Set_Names, Sets_in_several_places_have_to_be_told_apart) {
  add("h1", "r", "data/0000000001.1");
  add("h2", "r", "data/0000000001.1");
  add("h2", "r", "data/0000000002.1");
  EXPECT_EQ(found("data:1"),
            "2 Sets 'data:1' lie in several places; say which:\n  --host h1 --resource r\n  --host h2 --resource r");
  EXPECT_EQ(found("data:2"), "h2 r data/0000000002.1");
}

TEST(Mode_Text, It_is_that_of_ls) {
  EXPECT_EQ(mode_text(0100644), "-rw-r--r--");
  EXPECT_EQ(mode_text(0040755), "drwxr-xr-x");
  EXPECT_EQ(mode_text(0104755), "-rwsr-xr-x");
  EXPECT_EQ(mode_text(0106644), "-rwSr-Sr--");
  EXPECT_EQ(mode_text(0041777), "drwxrwxrwt");
  EXPECT_EQ(mode_text(0041776), "drwxrwxrwT");
  EXPECT_EQ(mode_text(0120777), "lrwxrwxrwx");
  EXPECT_EQ(mode_text(0010600), "prw-------");
}

class Sets_View : public Sets_Fixture {};

TEST_F(Sets_View, List_and_its_short_form_show_the_sets_of_all_places) {
  write("file", "content");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(back_up({.name = "other", .host = "host2"}));
  EXPECT_EQ(run({"sets"}), exit_ok);
  const std::string listed = out_.str();
  EXPECT_THAT(listed, HasSubstr("data     1    1  "));
  EXPECT_THAT(listed, HasSubstr("other    1    1  "));
  EXPECT_EQ(run({"sets", "list"}), exit_ok);
  EXPECT_EQ(out_.str(), listed);
  EXPECT_EQ(run({"sets", "list", "--host", "host2", "--json"}), exit_ok);
  const json_spirit::Array sets = document().at("sets").get_array();
  ASSERT_THAT(sets, SizeIs(1));
  EXPECT_EQ(sets[0].get_obj().at("name").get_str(), "other");
  EXPECT_EQ(sets[0].get_obj().at("base").get_str(), "");
  EXPECT_EQ(sets[0].get_obj().at("files").get_int64(), 1);
}

TEST_F(Sets_View, A_damaged_record_is_told_and_passed_over) {
  test_support::Log_Capture log;
  write("file", "content");
  ASSERT_TRUE(back_up({.name = "bad"}) && back_up({.name = "good"}));
  std::filesystem::resize_file(set_dir("bad/0000000001.1/commit"), 20);
  EXPECT_EQ(run({"sets", "list"}), exit_job_failed);
  EXPECT_THAT(out_.str(), HasSubstr("good    1    1"));
  EXPECT_THAT(out_.str(), Not(HasSubstr("bad")));
  EXPECT_EQ(err_.str(), "Set bad:1.1 cannot be read.\n");
  EXPECT_TRUE(
      log.has(LM_ERROR, "Object \"bad/0000000001.1/commit\" is damaged at offset 0: its checksum does not fit.\n"))
      << log.all();
  EXPECT_EQ(run({"sets", "show", "bad"}), exit_pool);
  EXPECT_EQ(run({"sets", "show", "good"}), exit_ok);
  EXPECT_EQ(run({"sets", "find", "file"}), exit_job_failed);
  EXPECT_THAT(out_.str(), HasSubstr("good:1.1"));
}

TEST_F(Sets_View, An_empty_pool_has_no_sets_and_a_missing_one_is_told) {
  EXPECT_EQ(run({"sets"}), exit_pool);
  EXPECT_EQ(failure_, "There is no pool at file://" + pool_ + ".");
  std::filesystem::create_directory(pool_);
  EXPECT_EQ(run({"sets"}), exit_ok);
  EXPECT_EQ(run({"sets", "--json"}), exit_ok);
  EXPECT_THAT(document().at("sets").get_array(), SizeIs(0));
  EXPECT_EQ(run({"sets", "show", "data"}), exit_pool);
  EXPECT_EQ(failure_, "There is no set 'data' in the pool.");
}

TEST_F(Sets_View, A_pool_is_told_by_a_file_too) {
  write("file", "content");
  ASSERT_TRUE(back_up());
  add_pool_ = false;
  const std::string file = dir_.write("pool.json", R"({"url": "file://)" + pool_ + R"("})");
  EXPECT_EQ(run({"sets", "show", "data", "--pool-file", file}), exit_ok);
  for (const char* text : {"{}", "[]", "no json"}) {
    dir_.write("bad.json", text);
    EXPECT_EQ(run({"sets", "--pool-file", dir_ / "bad.json"}), exit_usage) << text;
    EXPECT_THAT(failure_, HasSubstr(dir_ / "bad.json"));
  }
  EXPECT_EQ(run({"sets", "--pool-file", dir_ / "missing"}), exit_usage);
}

TEST_F(Sets_View, Show_tells_what_the_commit_record_holds) {
  write("file", "0123456789");
  ASSERT_TRUE(back_up({.seq = 3}));
  EXPECT_EQ(run({"sets", "show", "data"}), exit_ok);
  for (const char* line : {"Set          data:3.1\n", "Host         host\n", "Kind         full\n", "Files        1\n",
                           "Directories  1\n", "Size         10 B\n", "Compression  zstd\n"})
    EXPECT_THAT(out_.str(), HasSubstr(line));
  EXPECT_THAT(out_.str(), HasSubstr("Source       " + source_ + "\n"));
  EXPECT_THAT(out_.str(), ContainsRegex("channel-000.mtf.zst +[0-9]+  [0-9a-f]+\n"));
  EXPECT_EQ(run({"sets", "show", "data:3", "--json"}), exit_ok);
  EXPECT_EQ(document().at("dir").get_str(), "data/0000000003.1");
  EXPECT_THAT(document().at("objects").get_array(), SizeIs(5));
}

TEST_F(Sets_View, Show_tells_which_sets_a_set_needs) {
  for (uint32_t seq = 1; seq <= 3; ++seq) {
    write(std::to_string(seq), "x");
    ASSERT_TRUE(back_up({.seq = seq, .incremental = seq > 1}));
  }
  EXPECT_EQ(run({"sets", "show", "data:3"}), exit_ok);
  EXPECT_THAT(out_.str(), HasSubstr("\nNeeds        1.1, 2.1\n"));
  EXPECT_EQ(run({"sets", "show", "data:3", "--json"}), exit_ok);
  const json_spirit::Array chain = document().at("chain").get_array();
  ASSERT_THAT(chain, SizeIs(2));
  EXPECT_EQ(chain[1].get_obj().at("seq").get_int64(), 2);
  EXPECT_EQ(chain[1].get_obj().at("incarnation").get_int64(), 1);
  EXPECT_EQ(run({"sets", "show", "data:1"}), exit_ok);
  EXPECT_THAT(out_.str(), Not(HasSubstr("Needs")));
}

TEST_F(Sets_View, Show_lists_a_directory_of_the_set) {
  write("b", "12345");
  write("dir/deep/file", "x");
  write("dir/inside", "yy");
  std::filesystem::create_symlink("b", source_ + "/link");
  std::filesystem::create_hard_link(source_ + "/b", source_ + "/c");
  chmod((source_ + "/b").c_str(), 0640);
  ASSERT_TRUE(back_up());
  for (const std::string& path : {std::string("/"), std::string("."), source_, source_ + "/"}) {
    EXPECT_EQ(run({"sets", "show", "data", path}), path == "/" ? exit_usage : exit_ok) << path;
    if (path == "/") continue;
    EXPECT_THAT(out_.str(),
                ContainsRegex("^-rw-r----- +2 .* 5 .* b\n-rw-r----- .* c = .*/source/b\nlrwxrwxrwx .* link -> "
                              "b\ndrwx.* dir\n$"))
        << path;
  }
  EXPECT_EQ(run({"sets", "show", "data", "dir/"}), exit_ok);
  EXPECT_THAT(out_.str(), ContainsRegex("^-.* 2 .* inside\ndrw.* deep\n$"));
  EXPECT_EQ(run({"sets", "show", "data", "dir/inside"}), exit_ok);
  EXPECT_THAT(out_.str(), ContainsRegex("^-.* 2 .* inside\n$"));
  EXPECT_EQ(run({"sets", "show", "data", "dir/none"}), exit_usage);
  EXPECT_EQ(failure_, "There is no 'dir/none' in set data:1.1, which was made from " + source_ + ".");
  EXPECT_EQ(run({"sets", "show", "data", "dir/none", "--json"}), exit_usage);
  EXPECT_EQ(out_.str(), "");
}

TEST_F(Sets_View, Names_of_any_bytes_are_printable_and_exact_in_json) {
  write("evil\n\xff%41", "x");
  ASSERT_TRUE(back_up({.name = "name\xfe"}));
  EXPECT_EQ(run({"sets", "show", "name\xfe", "."}), exit_ok);
  EXPECT_THAT(out_.str(), HasSubstr("evil\\x0A\\xFF%41\n"));
  EXPECT_EQ(run({"sets", "show", "name%FE", ".", "--json"}), exit_ok);
  const json_spirit::Object entry = document().at("entries").get_array().at(0).get_obj();
  EXPECT_THAT(entry.at("path_bytes").get_str(), HasSubstr("/evil%0A%FF%2541"));
  EXPECT_EQ(run({"sets", "--json"}), exit_ok);
  EXPECT_EQ(document().at("sets").get_array().at(0).get_obj().at("name_bytes").get_str(), "name%FE");
}

TEST_F(Sets_View, Find_compares_names_or_whole_paths) {
  write("a/x.conf", "1");
  write("b/x.conf", "12");
  write("b/y.txt", "3");
  ASSERT_TRUE(back_up() && back_up({.seq = 2}) && back_up({.name = "other"}));
  EXPECT_EQ(run({"sets", "find", "*.conf", "data:1", "other"}), exit_ok);
  EXPECT_THAT(out_.str(),
              ContainsRegex("^data:1.1  20.*  1 B  .*/a/x.conf\ndata:1.1 .*  2 B  .*/b/x.conf\nother:1.1 "));
  EXPECT_THAT(out_.str(), Not(HasSubstr("data:2.1")));
  EXPECT_EQ(run({"sets", "find", "*/b/*", "--json"}), exit_ok);
  EXPECT_THAT(document().at("matches").get_array(), SizeIs(6));
  EXPECT_EQ(document().at("matches").get_array().at(0).get_obj().at("path").get_str(), source_ + "/b/x.conf");
  EXPECT_EQ(run({"sets", "find", "nothing"}), exit_job_failed);
  EXPECT_EQ(out_.str(), "");
}

TEST_F(Sets_View, A_damaged_catalog_spoils_the_search_in_one_set_only) {
  test_support::Log_Capture log;
  write("file", "x");
  ASSERT_TRUE(back_up() && back_up({.seq = 2}));
  std::filesystem::resize_file(set_dir("data/0000000001.1/catalog"), 50);
  EXPECT_EQ(run({"sets", "find", "file"}), exit_job_failed);
  EXPECT_THAT(out_.str(), ContainsRegex("^data:2.1 "));
  EXPECT_EQ(err_.str(), "The catalog of set data:1.1 cannot be read.\n");
  EXPECT_EQ(run({"sets", "find", "file", "--json"}), exit_job_failed);
  EXPECT_THAT(document().at("matches").get_array(), SizeIs(1));
  EXPECT_EQ(run({"sets", "find", "none", "data:2", "--json"}), exit_job_failed);
  EXPECT_THAT(document().at("matches").get_array(), SizeIs(0));
}

}  // namespace
