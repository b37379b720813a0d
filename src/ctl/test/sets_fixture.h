#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "client_io/client_io_factory.h"
#include "ctl/commands.h"
#include "ctl/failure.h"
#include "ctl/options.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"
#include "kolt/pool_info.h"
#include "mtf_backup/mtf_backup.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/set_key.h"
#include "mtf_backup/set/set_store.h"
#include "mtf_backup/test/posix_callbacks.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"

namespace ctl_test {

/// Commands on a pool in a directory, with sets that the data mover made.
class Sets_Fixture : public ::testing::Test {
 protected:
  Sets_Fixture() {
    std::filesystem::create_directory(source_);
    info_.url = "file://" + pool_;
  }

  /// From now on commands get the description of the pool from a file.
  void describe_pool() {
    json_spirit::Object pool;
    info_ >> pool;
    pool_file_ = dir_.write("pool.json", json_spirit::JSON_Dump(pool, false).str());
  }

  struct Backup {
    std::string name = "data";
    uint32_t seq = 1;
    std::string host = "host";
    std::string resource = "res";
    size_t channels = 2;
    Compression_Method compression = COMPR_ZSTD;
    bool incremental = false;
    std::vector<std::string> sources = {};
    mover_test::Hook hook = {};
  };

  bool back_up() { return back_up(Backup()); }
  bool back_up(const Backup& args) {
    // What is younger than the set before is read again, so that is made younger than all files.
    if (args.incremental) date_sets([](uint32_t) { return std::time(nullptr) + 100; });
    const bool ok = make_set(args);
    date_sets([](uint32_t seq) { return 1717372800 + seq * 86400; });
    return ok;
  }

  /// Says when each set was begun, by its number.
  void date_sets(const std::function<int64_t(uint32_t seq)>& time) const {
    std::vector<MTF_BACKUP::Pool_Key> keys;
    const auto pool = make_client_io(info_, "", {});
    ASSERT_TRUE(pool && list_pool(*pool, "", "", keys));
    for (const MTF_BACKUP::Pool_Key& key : keys) {
      const auto storage = MTF_BACKUP::make_channel_factory(info_, key.host + "/" + key.resource, {})->storage();
      MTF_BACKUP::Set_Store store(storage);
      MTF_BACKUP::Commit_Record record;
      if (!store.read(key.set.dir(), record)) continue;
      record.begin_time = time(record.seq);
      ASSERT_TRUE(storage->remove(key.set.dir() + "/commit"));
      ASSERT_TRUE(store.commit({record.name, record.seq, record.incarnation}, record));
    }
  }

  bool make_set(const Backup& args) {
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(), metadata, ACE_Log_Msg_Callback_var());
    backup.pool_uuid("pool");
    backup.host_uuid(args.host);
    backup.uuid("set-" + args.name + std::to_string(args.seq));
    backup.minor_resource_id(args.resource);
    backup.compression(static_cast<MTF_COMPRESSION_TYPE>(args.compression));
    backup.channel_num(args.channels);
    backup.incremental(args.incremental);
    backup.seq(args.seq - 1);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new mover_test::Posix_Backup_Factory(args.hook)));
    backup.channel_factory(MTF_BACKUP::make_channel_factory(info_, args.host + "/" + args.resource, {}));
    for (const std::string& source : args.sources.empty() ? std::vector<std::string>{source_} : args.sources)
      backup.add_source(source);
    return backup.backup(args.name);
  }

  /// A file in the source.
  std::string write(const std::string& name, const std::string& content) const {
    return dir_.write("source/" + name, content);
  }

  /// Runs a command line; what it prints and how it ends is kept.
  ctl::Exit_Code run(std::vector<std::string> words) {
    words.insert(words.begin(), "tessarinctl");
    if (!pool_file_.empty())
      words.insert(words.end(), {"--pool-file", pool_file_});
    else if (add_pool_)
      words.insert(words.end(), {"--pool", pool_});
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    out_.str("");
    err_.str("");
    failure_.clear();
    ctl::Options options;
    int code = ctl::exit_ok;
    if (!ctl::parse_options(static_cast<int>(argv.size()), argv.data(), options, code, out_, err_))
      return static_cast<ctl::Exit_Code>(code);
    try {
      return ctl::run_command(options, out_, err_);
    } catch (const ctl::Failure& failure) {
      failure_ = failure.what();
      return failure.code();
    }
  }

  /// The document that the last command printed.
  json_spirit::Object document() const {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::loads_json(out_.str(), value)) << out_.str();
    return value.type() == json_spirit::obj_type ? value.get_obj() : json_spirit::Object();
  }

  /// What a shell command prints; its exit code is expected to be 0.
  static std::string shell(const std::string& command) {
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    std::string text;
    std::array<char, 4096> buffer;
    for (size_t n; (n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) text.append(buffer.data(), n);
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << text;
    return text;
  }
  std::string made(const std::string& name) const {
    std::filesystem::create_directory(dir_ / name);
    return dir_ / name;
  }
  static std::string differences(const std::string& a, const std::string& b) {
    std::string text;
    for (const std::string& line : test_support::compare_trees(a, b).differences) text += line + "\n";
    return text;
  }
  static std::string noise(size_t n) {
    std::string bytes(n, '\0');
    unsigned state = 1;
    for (char& byte : bytes) byte = static_cast<char>((state = state * 1103515245 + 12345) >> 16);
    return bytes;
  }
  /// A file of 64 MiB with two stretches of data.
  void write_sparse(const std::string& name) const {
    std::ofstream file(source_ + "/" + name, std::ios::binary);
    file.seekp(5 << 20);
    file << "first";
    file.seekp(40 << 20);
    file << noise(100000);
    file.close();
    std::filesystem::resize_file(source_ + "/" + name, 64 << 20);
  }

  std::string set_dir(const std::string& dir) const { return pool_ + "/host/res/" + dir; }

  const test_support::Temp_Dir dir_;
  const std::string source_ = dir_ / "source";
  const std::string pool_ = dir_ / "pool";
  Pool_Info info_;
  std::string pool_file_;
  bool add_pool_ = true;
  std::ostringstream out_;
  std::ostringstream err_;
  std::string failure_;
};

}  // namespace ctl_test
