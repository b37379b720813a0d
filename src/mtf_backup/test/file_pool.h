#pragma once

#include <map>
#include <string>

#include "kolt/pool_info.h"
#include "mtf_backup/test/mover_fixture.h"

namespace mover_test {

/// A pool in a directory.
class File_Pool_Fixture : public Mover_Fixture {
 protected:
  MTF_BACKUP::Channel_Factory_var make_channels(test_support::Fault_Plan*) const override {
    Pool_Info pool;
    pool.url = "file://" + pool_dir_;
    Client_IO_Base::Options options;
    options.max_seconds_retry = 0;  // failures are what these tests are about
    return MTF_BACKUP::make_channel_factory(pool, "host/minor", options);
  }

  /// All that lies in the pool: content by path, unfinished objects among it.
  std::map<std::string, std::string> pool_files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(pool_dir_))
      files[entry.path().string()] =
          entry.is_regular_file() ? test_support::read_file(entry.path().string()) : std::string("directory");
    return files;
  }

  void clear_target() const {
    for (const auto& entry : std::filesystem::directory_iterator(target_)) std::filesystem::remove_all(entry.path());
  }

  const std::string pool_dir_ = dir_ / "pool";
};

}  // namespace mover_test
