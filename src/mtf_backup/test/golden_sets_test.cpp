// Sets that earlier versions wrote: every later one lists and restores them, with the very result that is recorded
// beside them. test/data/golden-sets/README.md tells what they hold, and how they are made anew.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <xxhash.h>

#include <sstream>

#include "kolt/pool_info.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/test/mover_fixture.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

namespace fs = std::filesystem;
using MTF_BACKUP::Catalog_Entry;

const std::string golden_dir = TEST_DATA_DIR "/golden-sets";
// The sources of the sets lay here.
const std::string golden_root = "/tmp/tessarin-golden";
const std::string golden_source = golden_root + "/source";

/// A resource of the golden pool, and the numbers of its sets.
struct Golden {
  const char* resource;
  unsigned compression;
  unsigned sets;
  Encryption_Algorithm cipher = ENCRYPT_NONE;
};
const Golden goldens[] = {{"none", COMPR_NONE, 1},
                          {"auto", COMPR_AUTO, 1},
                          {"lzop", COMPR_LZOP, 1},
                          {"zstd", COMPR_ZSTD, 1},
                          {"chain", COMPR_ZSTD, 4},
                          {"gcm", COMPR_ZSTD, 2, ENCRYPT_AES_256_GCM},
                          {"cbc", COMPR_NONE, 1, ENCRYPT_AES_256_CBC}};

std::string hex(const std::string& bytes) {
  std::string text;
  for (const unsigned char c : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, c > 0x20 && c < 0x7f && c != '%' ? "%c" : "%%%02X", c);
    text += digits;
  }
  return text;
}

std::string hash_of(const std::string& bytes) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(XXH3_64bits(bytes.data(), bytes.size())));
  return text;
}

std::string attributes_of(const std::string& path) {
  char names[4096];
  const ssize_t size = llistxattr(path.c_str(), names, sizeof names);
  std::set<std::string> attributes;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(strlen(names + at) + 1)) {
    char value[4096];
    const ssize_t length = lgetxattr(path.c_str(), names + at, value, sizeof value);
    if (std::string(names + at).starts_with("user."))
      attributes.insert(std::string(names + at) + "=" + hex(std::string(value, length > 0 ? length : 0)));
  }
  std::string text;
  for (const std::string& attribute : attributes) text += " " + attribute;
  return text;
}

/// One line per entry of a tree: type and mode, size, time, name, and what it holds. Owners as far as root sees them.
std::string list_tree(const std::string& root) {
  std::set<std::string> lines;
  std::map<ino_t, std::set<std::string>> names;
  std::vector<std::string> paths{root};
  for (const auto& entry : fs::recursive_directory_iterator(root)) paths.push_back(entry.path().string());
  for (const std::string& path : paths) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return path + " is gone";
    const std::string name = path == root ? "." : hex(path.substr(root.size() + 1));
    std::ostringstream line;
    line << name << ' ' << std::oct << st.st_mode << std::dec << ' ';
    if (geteuid() == 0) line << st.st_uid << ':' << st.st_gid << ' ';
    line << st.st_mtim.tv_sec << '.' << st.st_mtim.tv_nsec << attributes_of(path);
    if (S_ISLNK(st.st_mode)) line << " -> " << hex(fs::read_symlink(path).string());
    if (S_ISREG(st.st_mode)) {
      line << ' ' << st.st_size << ' ' << hash_of(test_support::read_file(path));
      if (st.st_blocks * 512 < st.st_size / 2) line << " sparse";
      if (st.st_nlink > 1) names[st.st_ino].insert(name);
    }
    lines.insert(line.str());
  }
  std::set<std::string> groups;
  for (const auto& [inode, group] : names) {
    std::string line = "one file:";
    for (const std::string& name : group) line += " " + name;
    groups.insert(line);
  }
  std::string text;
  for (const auto& set : {lines, groups})
    for (const std::string& line : set) text += line + "\n";
  return text;
}

std::string list_entry(const Catalog_Entry& entry) {
  std::ostringstream line;
  line << (entry.path.empty() ? "." : hex(entry.path)) << ' ' << std::oct << entry.stat.mode << std::dec << ' '
       << entry.stat.uid << ':' << entry.stat.gid << ' ' << entry.stat.size << ' ' << entry.stat.mtime.sec << '.'
       << entry.stat.mtime.nsec << " set " << entry.set << " channel " << entry.channel << " data " << entry.data_size
       << ' ' << std::hex << entry.data_hash << " attributes " << entry.xattr_hash << std::dec;
  if (!entry.link_target.empty()) line << " -> " << hex(entry.link_target);
  if (!entry.hard_link_target.empty()) line << " = " << hex(entry.hard_link_target);
  if (entry.flags != 0) line << " flags " << entry.flags << ' ' << hex(entry.reason);
  return line.str() + "\n";
}

class Golden_Sets : public Mover_Fixture, public ::testing::WithParamInterface<Golden> {
 protected:
  MTF_BACKUP::Channel_Factory_var make_channels(test_support::Fault_Plan*) const override {
    Pool_Info pool;
    pool.url = "file://" + golden_dir + "/pool";
    pool.cipher = GetParam().cipher;
    if (pool.cipher != ENCRYPT_NONE) pool.key = "0123456789abcdef0123456789abcdef";
    return MTF_BACKUP::make_channel_factory(pool, std::string("golden/") + GetParam().resource,
                                            Client_IO_Base::Options());
  }

  static std::string listing_file(unsigned seq, const char* what) {
    return golden_dir + "/listings/" + GetParam().resource + "-" + std::to_string(seq) + "." + what;
  }

  std::string list_catalog(unsigned seq) const {
    const std::shared_ptr<Client_IO_Base> storage = make_channels(nullptr)->storage();
    MTF_BACKUP::Set_Id id;
    MTF_BACKUP::Commit_Record record;
    if (!MTF_BACKUP::Set_Store(storage).find("volume", seq, 0, id, record)) return "no set";
    const MTF_BACKUP::Stored_Object* object = record.find("catalog");
    MTF_BACKUP::Catalog_Reader catalog(*storage, id.dir(), record.set_uuid, object ? object->size : 0);
    if (!catalog.open()) return "no catalog";
    std::string text;
    Catalog_Entry entry;
    int got;
    while ((got = catalog.next(entry)) == 1) text += list_entry(entry);
    return got == 0 ? text : "damaged";
  }

  std::string restored_tree(unsigned seq) {
    for (const auto& entry : fs::directory_iterator(target_)) fs::remove_all(entry.path());
    Log_Capture log;
    if (!restore({.seq = seq, .select = {golden_source}, .rules = {{golden_source, target_}}})) return log.all();
    return list_tree(target_);
  }

  bool target_keeps_attributes() const {
    return setxattr(target_.c_str(), "user.probe", "", 0, 0) == 0 && removexattr(target_.c_str(), "user.probe") == 0;
  }
};

INSTANTIATE_TEST_SUITE_P(Resources, Golden_Sets, ::testing::ValuesIn(goldens),
                         [](const auto& info) { return std::string(info.param.resource); });

TEST_P(Golden_Sets, AreListedAsRecorded) {
  for (unsigned seq = 1; seq <= GetParam().sets; ++seq)
    EXPECT_EQ(test_support::read_file(listing_file(seq, "catalog")), list_catalog(seq)) << "set " << seq;
}

TEST_P(Golden_Sets, AreRestoredAsRecorded) {
  if (geteuid() != 0) GTEST_SKIP() << "owners come back for root only";
  if (!target_keeps_attributes()) GTEST_SKIP() << "no attributes in " << target_;
  for (unsigned seq = 1; seq <= GetParam().sets; ++seq)
    EXPECT_EQ(test_support::read_file(listing_file(seq, "tree")), restored_tree(seq)) << "set " << seq;
}

/// Makes the sets anew: only where the environment asks for it.
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
  /// All times of what is there, each another one.
  static void set_times() {
    std::vector<std::string> paths{golden_source};
    for (const auto& entry : fs::recursive_directory_iterator(golden_source)) paths.push_back(entry.path().string());
    std::sort(paths.rbegin(), paths.rend());  // what lies in a directory before it
    for (const std::string& path : paths) {
      const long second = 1'500'000'000 + static_cast<long>(XXH3_64bits(path.data(), path.size()) % 100'000'000);
      const timespec times[2] = {{second, 1}, {second, second % 1'000'000'000}};
      ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW)) << path;
    }
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
    ASSERT_EQ(0, setxattr(at("attributes").c_str(), "user.one", "a\0b", 3, 0));
    ASSERT_EQ(0, setxattr(at("attributes").c_str(), "user.empty", "", 0, 0));
    ASSERT_EQ(0, setxattr(at("dir").c_str(), "user.on.directory", "d", 1, 0));
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

  void write_set(unsigned seq) {
    // What changed less than a minute before a set is read again by the next one.
    std::this_thread::sleep_for(std::chrono::seconds(62));
    Log_Capture log;
    ASSERT_TRUE(back_up({.compression = GetParam().compression,
                         .channels = 2,
                         .seq = seq - 1,
                         .sources = {golden_source},
                         .incremental = seq > 1}))
        << log.all();
    std::ofstream(listing_file(seq, "tree")) << list_tree(golden_source);
    std::ofstream(listing_file(seq, "catalog")) << list_catalog(seq);
  }
};

INSTANTIATE_TEST_SUITE_P(Resources, Golden_Maker, ::testing::ValuesIn(goldens),
                         [](const auto& info) { return std::string(info.param.resource); });

TEST_P(Golden_Maker, MakesSets) {
  ASSERT_NO_FATAL_FAILURE(make_all_kinds());
  if (GetParam().compression != COMPR_NONE) make_frames();
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
  ASSERT_EQ(0, setxattr(at("attributes").c_str(), "user.two", "2", 1, 0));
  ASSERT_NO_FATAL_FAILURE(write_set(3));

  // Nothing changed.
  ASSERT_NO_FATAL_FAILURE(write_set(4));
}

}  // namespace
