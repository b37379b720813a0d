#include "mtf_backup/set/directory_list.h"

#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/test/store_fixture.h"
#include "support/counting_client_io.h"

namespace {

using MTF_BACKUP::Catalog_Entry;
using MTF_BACKUP::Catalog_Reader;
using MTF_BACKUP::Catalog_Writer;

constexpr char list_dir[] = "set/0000000001.1";

class Directory_List : public Store_Fixture {
 protected:
  /// Paths in catalog order; a directory ends in '/'.
  void write(const std::vector<std::string>& paths) {
    Catalog_Writer writer(client_, list_dir, "uuid");
    ASSERT_TRUE(writer.open());
    for (std::string path : paths) {
      Catalog_Entry entry;
      entry.stat.mode = path.empty() || path.back() == '/' ? 0040755 : 0100644;
      if (!path.empty() && path.back() == '/') path.pop_back();
      entry.path = path;
      ASSERT_TRUE(writer.append(entry)) << path;
    }
    ASSERT_TRUE(writer.finish());
    size_ = writer.object().size;
    counted_.reset();
  }

  /// What list_directory() gives, then the paths.
  std::string list(const std::string& path, uint32_t source = 0) {
    Catalog_Reader reader(counted_, list_dir, "uuid", size_);
    std::string text;
    if (!reader.open()) return "not open";
    const int got = list_directory(reader, source, path, [&](const Catalog_Entry& entry) { text += " " + entry.path; });
    return std::to_string(got) + text;
  }

  test_support::Counting_Client_IO counted_{client_};
  uint64_t size_ = 0;
};

TEST_F(Directory_List, It_shows_the_children_and_nothing_deeper) {
  write({"", "a", "z", "b/", "b/x", "b/c/", "b/c/y", "b\x01/", "b\x01/q", "d/"});
  EXPECT_EQ(list(""), "1 a z b b\x01 d");
  EXPECT_EQ(list("b"), "1 b/x b/c");
  EXPECT_EQ(list("b/c"), "1 b/c/y");
  EXPECT_EQ(list("d"), "1");
}

TEST_F(Directory_List, It_shows_an_entry_that_is_no_directory) {
  write({"", "a", "b/", "b/x"});
  EXPECT_EQ(list("b/x"), "1 b/x");
}

TEST_F(Directory_List, A_path_that_is_not_there_is_told) {
  write({"", "b/", "b/x"});
  for (const char* path : {"a", "b/", "b/x/y", "bb"}) EXPECT_EQ(list(path), "0") << path;
  EXPECT_EQ(list("", 1), "0");
}

TEST_F(Directory_List, Large_subtrees_are_passed_over) {
  std::vector<std::string> paths{""};
  std::string expected = "1";
  for (int d = 0; d < 20; ++d) {
    const std::string directory = "d" + std::to_string(100 + d);
    paths.push_back(directory + "/");
    expected += " " + directory;
    for (int f = 10000; f < 20000; ++f) paths.push_back(directory + "/" + std::to_string(f * 7919 % 1000003 + 1000000));
    std::sort(paths.end() - 10000, paths.end());
  }
  write(paths);
  EXPECT_EQ(list(""), expected);
  EXPECT_LT(counted_.bytes_read(), size_ * 3 / 4);
  counted_.reset();
  EXPECT_EQ(list("d110/" + paths.at(10 * 10001 + 2 + 5000).substr(5)).substr(0, 2), "1 ");
  EXPECT_LT(counted_.bytes_read(), size_ / 10);
}

TEST_F(Directory_List, Damage_fails_it) {
  test_support::Log_Capture log;
  write({"", "b/", "b/x"});
  std::string& bytes = pool_->objects[std::string(list_dir) + "/catalog"];
  bytes[40] = static_cast<char>(bytes[40] ^ 1);
  EXPECT_EQ(list("b"), "-1");
}

}  // namespace
