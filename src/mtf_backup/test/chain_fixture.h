#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/test/mover_fixture.h"

namespace mover_test {

/// Sets that build on each other: the first has number 1.
class Chain_Fixture : public Mover_Fixture {
 protected:
  /// Writes the set with the next number; the first one is full.
  bool step(Backup_Args args = {}) {
    args.seq = last_seq_;
    args.incremental = last_seq_ > 0;
    const bool ok = back_up(args);
    if (code_ == MTF::E_OK || code_ == MTF::E_END_WITH_SKIPPED_FILES || code_ == MTF::E_NO_FILES_BACKUPED) ++last_seq_;
    return ok;
  }

  /// Makes the files older than all sets: what is younger is never kept, and nobody can set its change time. So the
  /// sets are made younger. What is changed afterwards gets another time than before.
  void age() {
    change_records([](MTF_BACKUP::Commit_Record& record) { record.begin_time = std::time(nullptr) + 100; });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  /// As step(), with all sets so far younger than the files.
  bool aged_step(Backup_Args args = {}) {
    age();
    return step(std::move(args));
  }

  void change_records(const std::function<void(MTF_BACKUP::Commit_Record&)>& change) {
    for (MTF_BACKUP::Commit_Record record : sets()) {
      change(record);
      pool_->objects[dir_of(record) + "/commit"] = record.to_text();
    }
  }

  static std::string dir_of(const MTF_BACKUP::Commit_Record& record) {
    return MTF_BACKUP::Set_Id{record.name, record.seq, record.incarnation}.dir();
  }
  static std::string set_dir(unsigned seq) { return MTF_BACKUP::Set_Id{"volume", seq, 1}.dir(); }

  /// The record of the newest set with this number.
  MTF_BACKUP::Commit_Record record_of(unsigned seq) {
    MTF_BACKUP::Commit_Record found;
    for (const MTF_BACKUP::Commit_Record& record : sets())
      if (record.seq == seq) found = record;
    return found;
  }
  MTF_BACKUP::Commit_Record last_record() { return record_of(last_seq_); }

  /// The entries of the last set by their path.
  std::map<std::string, MTF_BACKUP::Catalog_Entry> catalog() {
    const MTF_BACKUP::Commit_Record record = last_record();
    test_support::Memory_Client_IO client(pool_);
    std::map<std::string, MTF_BACKUP::Catalog_Entry> entries;
    const MTF_BACKUP::Stored_Object* object = record.find("catalog");
    if (!object) return entries;
    MTF_BACKUP::Catalog_Reader reader(client, dir_of(record), record.set_uuid, object->size);
    EXPECT_TRUE(reader.open());
    MTF_BACKUP::Catalog_Entry entry;
    while (reader.next(entry) == 1) entries[entry.path] = entry;
    return entries;
  }
  /// Puts another catalog in the place of the last set's, which has no directory but the root.
  void change_catalog(const std::function<void(std::map<std::string, MTF_BACKUP::Catalog_Entry>&)>& change) {
    auto entries = catalog();
    change(entries);
    const std::string dir = set_dir(last_seq_);
    test_support::Memory_Client_IO client(pool_);
    pool_->objects.erase(dir + "/catalog");
    MTF_BACKUP::Catalog_Writer writer(client, dir, last_record().set_uuid);
    ASSERT_TRUE(writer.open());
    for (const auto& [path, entry] : entries) ASSERT_TRUE(writer.append(entry));
    ASSERT_TRUE(writer.finish());
    change_records([&](MTF_BACKUP::Commit_Record& record) {
      if (record.seq != last_seq_) return;
      for (MTF_BACKUP::Stored_Object& object : record.objects)
        if (object.name == "catalog") object = writer.object();
    });
  }
  /// Number of the set in which the block of an entry of the last set lies; 0 where the last set has no such entry.
  unsigned home(const std::string& path) {
    const auto entries = catalog();
    const auto found = entries.find(path);
    if (found == entries.end()) return 0;
    const unsigned set = found->second.set;
    if (set == 0) return last_seq_;
    const std::string dir = last_record().chain.at(set - 1).dir;
    return static_cast<unsigned>(std::stoul(dir.substr(dir.find('/') + 1)));
  }

  /// Keeps a copy of the source as it is now.
  std::string save(const std::string& name) const {
    const std::string copy = dir_ / name;
    const std::string command = "cp -a '" + source_ + "' '" + copy + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return copy;
  }
  /// Restores a set into an empty directory. What differs from @a expected.
  std::string restored_differences(unsigned seq, const std::string& expected) {
    std::filesystem::remove_all(target_);
    std::filesystem::create_directory(target_);
    EXPECT_TRUE(restore({.seq = seq}));
    return joined(test_support::compare_trees(expected, target_).differences);
  }
  std::string restored_differences() { return restored_differences(last_seq_, source_); }

  static timespec mtime(const std::string& path) {
    struct stat st = {};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0);
    return st.st_mtim;
  }
  static void set_mtime(const std::string& path, timespec time) {
    const timespec times[2] = {{0, UTIME_OMIT}, time};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }

  unsigned last_seq_ = 0;
};

}  // namespace mover_test
