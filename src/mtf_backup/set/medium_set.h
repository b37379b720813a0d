#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kolt/export.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/medium_reader.h"

namespace MTF_BACKUP {

/// The media of one set, each opened when it is first asked for. Threads: any.
class TESSARIN_API Medium_Set {
 public:
  /// All are borrowed. @param dir  of the set.
  Medium_Set(Channel_Factory& factory, const Commit_Record& record, const std::string& dir, Frame_Workers& workers);
  ~Medium_Set();

  /// The medium of a channel; null with errno when it cannot be opened, logged once.
  Medium_Reader* get(unsigned channel);
  /// Name of the medium, for log lines.
  std::string name(unsigned channel) const;
  /// Ends all waits for the storage.
  void cancel();

 private:
  struct Medium {
    std::shared_ptr<Client_IO_Base> storage;  // constant after construction
    std::unique_ptr<Medium_Reader> reader;    // guarded by lock_
    int error = 0;                            // guarded by lock_
  };
  void open(unsigned channel, Medium& medium);
  Medium_Id id(unsigned channel) const;

  const Commit_Record& record_;
  const std::string dir_;
  Frame_Workers& workers_;
  std::mutex lock_;
  std::vector<Medium> media_;  // by channel
};

}  // namespace MTF_BACKUP
