#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "mtf/fs/path_converter.h"
#include "mtf_backup/mtf_backup.h"
#include "mtf_backup/mtf_restore.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/set_store.h"
#include "mtf_backup/test/posix_callbacks.h"
#include "support/faulty_client_io.h"
#include "support/log_capture.h"
#include "support/memory_client_io.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"

namespace mover_test {

/// One progress report.
struct Report {
  int percent;
  ACE_UINT64 total;
  ACE_UINT64 processed;
  ACE_UINT64 speed;
};

/// Keeps the reports and cancels when asked to.
class Test_Handler : public MTF::Event_Handler {
 public:
  Test_Handler() : Event_Handler(MTF::PRM_FILE_SIZE) {}
  int handle_progress(int progress, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) override {
    std::lock_guard<std::mutex> guard(lock_);
    threads_.push_back(std::this_thread::get_id());
    reports_.push_back({progress, total, processed, speed});
    return 0;
  }
  bool canceling() override { return cancel || (cancel_when && cancel_when()); }

  std::vector<Report> reports() const {
    std::lock_guard<std::mutex> guard(lock_);
    return reports_;
  }
  std::vector<std::thread::id> threads() const { return threads_; }

  std::atomic<bool> cancel{false};
  std::function<bool()> cancel_when;

 private:
  mutable std::mutex lock_;
  std::vector<Report> reports_;
  std::vector<std::thread::id> threads_;
};

/// Puts something before a client.
typedef std::function<std::shared_ptr<Client_IO_Base>(std::unique_ptr<Client_IO_Base>)> Wrap;

/// Clients of one pool in memory, failing as planned where there is a plan, and wrapped where there is something to
/// wrap.
class Memory_Channel_Factory : public MTF_BACKUP::Channel_Factory {
 public:
  explicit Memory_Channel_Factory(std::shared_ptr<test_support::Memory_Pool> pool,
                                  test_support::Fault_Plan* plan = nullptr, Wrap wrap = {})
      : pool_(std::move(pool)), plan_(plan), wrap_(std::move(wrap)) {}

  std::shared_ptr<Client_IO_Base> storage() override {
    struct Failing : test_support::Faulty_Client_IO {
      Failing(std::unique_ptr<Client_IO_Base> next, test_support::Fault_Plan& plan)
          : Faulty_Client_IO(*next, plan), next_(std::move(next)) {}
      const std::unique_ptr<Client_IO_Base> next_;
    };
    std::unique_ptr<Client_IO_Base> client = std::make_unique<test_support::Memory_Client_IO>(pool_);
    if (plan_ != nullptr) client = std::make_unique<Failing>(std::move(client), *plan_);
    return wrap_ ? wrap_(std::move(client)) : std::move(client);
  }
  const Client_IO_Base::Options& options() const override { return options_; }

 private:
  const std::shared_ptr<test_support::Memory_Pool> pool_;
  test_support::Fault_Plan* const plan_;
  const Wrap wrap_;
  const Client_IO_Base::Options options_;
};

/// A source, a target and a pool in memory.
class Mover_Fixture : public ::testing::Test {
 protected:
  /// What a backup is run with.
  struct Backup_Args {
    unsigned compression = COMPR_NONE;
    size_t channels = 1;
    unsigned seq = 0;
    std::string name = "volume";
    Hook hook = Hook();
    test_support::Fault_Plan* plan = nullptr;
    std::vector<std::string> sources = {};               ///< none: source_
    MTF::IBackup_Callback_Factory* callbacks = nullptr;  ///< handed over; none: plain ones with the hook
    bool incremental = false;
    bool read_ahead = false;
  };
  struct Restore_Args {
    size_t threads = 2;
    unsigned seq = 1;
    unsigned incarnation = 0;
    std::string name = "volume";
    Hook hook = Hook();
    test_support::Fault_Plan* plan = nullptr;
    std::vector<std::string> select = {};     ///< none: source_
    MTF_FS::path_transform_rules rules = {};  ///< none: source_ to target_
  };

  /// @param place  where its directory is made; empty: where temporary files are kept.
  explicit Mover_Fixture(const std::string& place = "") : dir_(place) {
    std::filesystem::create_directory(source_);
    std::filesystem::create_directory(target_);
  }

  /// The way to the pool: in memory, if a test knows no other.
  virtual MTF_BACKUP::Channel_Factory_var make_channels(test_support::Fault_Plan* plan) const {
    return std::make_shared<Memory_Channel_Factory>(pool_, plan, wrap);
  }

  bool back_up(const Backup_Args& args) {
    make_handler();
    MTF::Metadata metadata;
    MTF_Backup backup(kept_handler_, metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("set-uuid");
    backup.host_uuid("host");
    backup.pool_uuid("pool");
    backup.minor_resource_id("minor");
    backup.compression(static_cast<MTF_COMPRESSION_TYPE>(args.compression));
    backup.channel_num(args.channels);
    backup.seq(args.seq);
    backup.incremental(args.incremental);
    backup.read_ahead_always(args.read_ahead);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(
        args.callbacks != nullptr ? args.callbacks : new Posix_Backup_Factory(args.hook)));
    backup.channel_factory(make_channels(args.plan));
    for (const std::string& source : args.sources.empty() ? std::vector<std::string>{source_} : args.sources)
      backup.add_source(source);
    const bool ok = backup.backup(args.name);
    keep(backup.err_code(), backup.size(), backup.set_size());
    storage_size_ = backup.set_storage_size();
    return ok;
  }

  bool restore(const Restore_Args& args) {
    make_handler();
    json_spirit::Array select;
    for (const std::string& dir : args.select.empty() ? std::vector<std::string>{source_} : args.select) {
      json_spirit::Object element;
      element["dir"] = dir;
      select.push_back(element);
    }
    MTF_FS::path_transform_rules rules = args.rules;
    if (rules.empty()) rules[source_] = target_;
    MTF_Restore restore(kept_handler_, ACE_Log_Msg_Callback_var());
    restore.target_location("/");
    restore.backup_host_uuid("host");
    restore.backup_minor_resource_id("minor");
    restore.restore_select(&select);
    restore.seq(args.seq);
    restore.incarnation(args.incarnation);
    restore.channel_num(args.threads);
    restore.concurrent(args.threads);
    const MTF::IPath_Converter_var converter =
        MTF_FS::create_transform_path_converter("/", rules, false, MTF::IPath_Converter_var(nullptr));
    if (!converter) throw std::bad_alloc();
    restore.path_converter(converter);
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory(args.hook)));
    restore.channel_factory(make_channels(args.plan));
    const bool ok = restore.restore(args.name);
    keep(restore.err_code(), restore.size(), restore.set_size());
    restored_size_ = restore.restored_size();
    missing_count_ = restore.missing_count();
    return ok;
  }

  bool back_up() { return back_up(Backup_Args()); }
  bool restore() { return restore(Restore_Args()); }

  /// The commit records in the pool.
  std::vector<MTF_BACKUP::Commit_Record> sets() {
    std::vector<MTF_BACKUP::Commit_Record> records;
    MTF_BACKUP::Set_Store store(make_channels(nullptr)->storage());
    EXPECT_TRUE(store.list([&](const MTF_BACKUP::Set_Id&, const MTF_BACKUP::Commit_Record& record) {
      records.push_back(record);
      return true;
    }));
    return records;
  }

  /// An entry of the first set in the pool.
  MTF_BACKUP::Catalog_Entry entry(const std::string& path) {
    const auto record = sets().at(0);
    const std::string dir = MTF_BACKUP::Set_Id{record.name, record.seq, record.incarnation}.dir();
    const auto storage = make_channels(nullptr)->storage();
    MTF_BACKUP::Catalog_Reader reader(*storage, dir, record.set_uuid, record.find("catalog")->size);
    MTF_BACKUP::Catalog_Entry found;
    EXPECT_TRUE(reader.open());
    EXPECT_EQ(1, reader.find(0, path, found)) << path;
    return found;
  }

  /// Does something once, when @a operation is about to happen to the entry of this name.
  static Hook once(const std::string& operation, const std::string& name, const std::function<void()>& action) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    return [=](const char* what, const std::string& path) {
      if (operation == what && (name.empty() || name_of(path) == name) && !done->exchange(true)) action();
      return false;
    };
  }

  /// Writes a file below the source.
  std::string write(const std::string& name, const std::string& content) const {
    return dir_.write("source/" + name, content);
  }
  /// Bytes that do not compress, the same for the same arguments.
  static std::string noise(size_t n, unsigned seed = 1) {
    std::minstd_rand random(seed);
    std::string bytes(n, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    return bytes;
  }

  static std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }
  std::string differences() const { return joined(test_support::compare_trees(source_, target_).differences); }

  const test_support::Temp_Dir dir_;
  const std::string source_ = dir_ / "source";
  const std::string target_ = dir_ / "target";
  const std::shared_ptr<test_support::Memory_Pool> pool_ = std::make_shared<test_support::Memory_Pool>();
  std::function<void(Test_Handler&)> prepare = [](Test_Handler&) {};
  Wrap wrap;  ///< of the clients of all runs

  // Of the last run:
  MTF::Event_Handler_var kept_handler_;
  Test_Handler* handler_ = nullptr;
  MTF::Error_Code code_ = MTF::E_OK;
  ACE_UINT64 size_ = 0;
  ACE_UINT64 set_size_ = 0;
  ACE_UINT64 storage_size_ = 0;
  ACE_UINT64 restored_size_ = 0;
  ACE_UINT64 missing_count_ = 0;

 private:
  void make_handler() {
    handler_ = new Test_Handler;
    kept_handler_ = MTF::Event_Handler_var(handler_);
    prepare(*handler_);
  }

  void keep(MTF::Error_Code code, ACE_UINT64 size, ACE_UINT64 set_size) {
    code_ = code;
    size_ = size;
    set_size_ = set_size;
  }
};

}  // namespace mover_test
