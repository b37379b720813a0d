// Makes the sets of test/data/golden-sets anew: only where the environment asks for it.
#include <fcntl.h>
#include <xxhash.h>

#include "kolt/test/deep_tree.h"
#include "mtf_backup/test/golden_fixture.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

namespace fs = std::filesystem;

class Golden_Maker : public Golden_Sets {
 protected:
  void SetUp() override {
    if (!std::getenv("TESSARIN_MAKE_GOLDEN_SETS")) GTEST_SKIP() << "TESSARIN_MAKE_GOLDEN_SETS is not set";
    ASSERT_EQ(0u, geteuid()) << "owners are given by root only";
    fs::remove_all(golden_root);
    fs::create_directories(golden_source);
    fs::remove_all(golden_dir + "/pool/golden/" + GetParam().resource);
    fs::create_directories(golden_dir + "/pool");
    fs::create_directories(golden_dir + "/listings");
  }
  void TearDown() override { fs::remove_all(golden_root); }

  static std::string at(const std::string& name) { return golden_source + "/" + name; }
  static void put(const std::string& name, const std::string& content, unsigned mode = 0644) {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << content;
    ASSERT_EQ(0, chmod(at(name).c_str(), mode));
  }
  static void set_attribute(const std::string& name, const char* attribute, const std::string& value) {
    ASSERT_EQ(0, setxattr(at(name).c_str(), attribute, value.data(), value.size(), 0)) << attribute;
  }
  /// All times of what is there, each another one.
  static void set_times() {
    for_each_entry(golden_source, [](const FTSENT& entry) {
      const uint64_t hash = XXH3_64bits(entry.fts_path, strlen(entry.fts_path));
      const long second = 1'500'000'000 + static_cast<long>(hash % 100'000'000);
      const timespec times[2] = {{second, 1}, {second, second % 1'000'000'000}};
      ASSERT_EQ(0, utimensat(AT_FDCWD, entry.fts_accpath, times, AT_SYMLINK_NOFOLLOW)) << entry.fts_path;
    });
  }

  static void make_all_kinds() {
    put("file", "some text\n");
    put("empty", "");
    put("dir/deeper/file", noise(3000));
    put("dir/set-uid", "x", 06755);
    put("owned", "y", 0600);
    ASSERT_EQ(0, chown(at("owned").c_str(), 1234, 5678));
    put("hard/first", "one file with three names");
    ASSERT_EQ(0, link(at("hard/first").c_str(), at("hard/second").c_str()));
    ASSERT_EQ(0, link(at("hard/first").c_str(), at("dir/third").c_str()));
    ASSERT_EQ(0, symlink("file", at("link").c_str()));
    ASSERT_EQ(0, symlink("/nowhere/\xff at all", at("dangling").c_str()));
    ASSERT_EQ(0, mkfifo(at("fifo").c_str(), 0640));
    ASSERT_EQ(0, mknod(at("socket").c_str(), S_IFSOCK | 0600, 0));
    put("names/new\nline", "1");
    put("names/not-utf8-\xff\xfe", "2");
    put("names/\xc3\xa4\xe2\x82\xac\xf0\x9f\x92\xbe", "3");
    put("names/" + std::string(255, 'n'), "4");
    fs::create_directories(at("empty-dir/in\tside"));
    ASSERT_EQ(0, chmod(at("empty-dir").c_str(), 01777));
    put("attributes", "z");
    set_attribute("attributes", "user.one", std::string("a\0b", 3));
    set_attribute("attributes", "user.empty", "");
    set_attribute("dir", "user.on.directory", "d");
    put("sparse", "");
    const int sparse = open(at("sparse").c_str(), O_WRONLY);
    ASSERT_EQ(5, pwrite(sparse, "begin", 5, 0));
    ASSERT_EQ(6, pwrite(sparse, "middle", 6, 3 << 20));
    ASSERT_EQ(0, ftruncate(sparse, (8 << 20) + 7));
    close(sparse);
    set_times();
  }
  static void make_frames() {
    put("frames", std::string(1'200'000, 'f') + "the end of the second frame");
    set_times();
  }

  static void make_rare_kinds() {
    put("listed", "x");
    set_attribute("listed", "system.posix_acl_access", test_support::access_list);
    fs::create_directories(at("dir"));
    set_attribute("dir", "system.posix_acl_default", test_support::access_list);
    put("program", "x", 0755);
    set_attribute("program", "security.capability", test_support::capability);
    ASSERT_EQ(0, mknod(at("null").c_str(), S_IFCHR | 0666, makedev(1, 3)));
    ASSERT_EQ(0, mknod(at("loop").c_str(), S_IFBLK | 0660, makedev(7, 200)));
    make_deep_tree(golden_source, std::string(255, 'd'), 20);
    put("cut", std::string(3000, 'c'));
    put("skipped", "cannot be read");
    put("bare", "with attributes that cannot be read");
    set_attribute("bare", "user.lost", "x");
    put("changed", "as it was");
    set_times();
  }
  /// What befalls the rare kinds while they are read.
  static bool fault(const char* operation, const std::string& path) {
    const std::string what = operation + (" " + name_of(path));
    if (what == "read cut") fs::resize_file(at("cut"), 2000);
    if (what == "read changed") fs::permissions(at("changed"), fs::perms::owner_read);
    errno = EIO;
    return what == "open skipped" || what == "read_xattrs bare";
  }
  /// Makes the source what a restore can give.
  static void lose_what_the_set_lacks() {
    const std::string zeros(1000, '\0');
    std::ofstream(at("cut"), std::ios::binary | std::ios::app) << zeros;
    ASSERT_EQ(0, chmod(at("changed").c_str(), 0644));
    ASSERT_EQ(0, unlink(at("skipped").c_str()));
    ASSERT_EQ(0, removexattr(at("bare").c_str(), "user.lost"));
    set_times();
  }

  void write_set(unsigned seq) {
    // What changed less than a minute before a set is read again by the next one.
    if (GetParam().sets > 1) std::this_thread::sleep_for(std::chrono::seconds(62));
    Log_Capture log;
    ASSERT_EQ(!GetParam().rare, back_up({.compression = GetParam().compression,
                                         .channels = 2,
                                         .seq = seq - 1,
                                         .hook = GetParam().rare ? Hook(fault) : Hook(),
                                         .sources = {golden_source},
                                         .incremental = seq > 1}))
        << log.all();
    if (GetParam().rare) lose_what_the_set_lacks();
    std::ofstream(listing_file(seq, "tree")) << list_tree(golden_source);
    std::ofstream(listing_file(seq, "catalog")) << list_catalog(seq);
  }
};

INSTANTIATE_TEST_SUITE_P(Resources, Golden_Maker, ::testing::ValuesIn(goldens),
                         [](const auto& info) { return std::string(info.param.resource); });

TEST_P(Golden_Maker, MakesSets) {
  ASSERT_NO_FATAL_FAILURE(GetParam().rare ? make_rare_kinds() : make_all_kinds());
  if (!GetParam().rare && GetParam().compression != COMPR_NONE) make_frames();
  ASSERT_NO_FATAL_FAILURE(write_set(1));
  if (GetParam().sets == 1) return;

  // A file that is new, one that grew, one that is gone with its directory, a name less of the hard links.
  put("new/file", noise(500, 2));
  put("file", "some text\nand more\n");
  fs::remove_all(at("dir/deeper"));
  fs::remove(at("hard/second"));
  ASSERT_NO_FATAL_FAILURE(write_set(2));
  if (GetParam().sets == 2) return;

  // Another kind of entry under an old name, a name that moved, changes of mode, owner and attributes alone.
  fs::remove(at("empty"));
  fs::create_directories(at("empty/now a directory"));
  fs::rename(at("names"), at("moved"));
  ASSERT_EQ(0, chmod(at("new/file").c_str(), 0400));
  ASSERT_EQ(0, chown(at("attributes").c_str(), 11, 12));
  set_attribute("attributes", "user.two", "2");
  ASSERT_NO_FATAL_FAILURE(write_set(3));

  // Nothing changed.
  ASSERT_NO_FATAL_FAILURE(write_set(4));
}

}  // namespace
