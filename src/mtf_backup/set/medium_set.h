#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kolt/export.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/medium_reader.h"

namespace MTF_BACKUP {

typedef std::shared_ptr<Medium_Reader> Medium_Reader_var;

/**
 * The media in which the blocks of a set's entries lie: its own, and those of the sets of its chain. Each is opened
 * when it is first asked for; so is the commit record of an older set read.
 *
 * However long the chain is, only as many media as the set itself has, and 16 more, are kept open: those used last.
 * All older sets are read through the clients of this set's channels.
 *
 * Threads: any. A medium may be read while others are opened.
 */
class TESSARIN_API Medium_Set {
 public:
  /// All are borrowed. @param dir  of the set.
  Medium_Set(Channel_Factory& factory, const Commit_Record& record, const std::string& dir, Frame_Workers& workers);
  /// As cancel(): what is being read ahead is not waited for.
  ~Medium_Set();

  /**
   * A medium, for use while this object lives. Whoever has no more use for it right now lets it go.
   *
   * @param set  as Catalog_Entry::set: 0, or a number in the chain, from 1.
   * @return null with errno when it cannot be opened, after a line at LM_ERROR for the first time; EBADMSG: it or the
   *   commit record of its set is missing or damaged.
   */
  Medium_Reader_var get(uint32_t set, uint32_t channel);
  /// Name of a medium, for log lines.
  std::string name(uint32_t set, uint32_t channel);
  /// Ends all waits for the storage.
  void cancel();

 private:
  /// This set or one of its chain.
  struct Member {
    std::string dir;
    std::string set_uuid;
    std::mutex lock;
    std::unique_ptr<Commit_Record> read;    // guarded by lock
    const Commit_Record* record = nullptr;  // guarded by lock
    int error = 0;                          // guarded by lock
  };
  struct Medium {
    std::mutex opening;
    Medium_Reader_var reader;  // guarded by Medium_Set::lock_, as all below
    int error = 0;
    uint64_t last_use = 0;
  };
  typedef std::shared_ptr<Medium> Medium_var;

  const Commit_Record* record_of(Member& member);
  bool read_record(Member& member);
  Medium_Reader_var open(const Member& member, const Commit_Record& record, uint32_t channel);
  // With lock_ held:
  Medium_Reader_var use(Medium& medium);
  Medium_Reader_var drop_oldest();

  Frame_Workers& workers_;
  std::vector<std::shared_ptr<Client_IO_Base>> clients_;  // by channel of this set; null where memory ran out
  std::vector<std::unique_ptr<Member>> members_;          // by Catalog_Entry::set
  const size_t most_open_;

  std::mutex lock_;
  std::map<std::pair<uint32_t, uint32_t>, Medium_var> media_;  // guarded by lock_: by set and channel
  size_t open_ = 0;                                            // guarded by lock_
  uint64_t use_ = 0;                                           // guarded by lock_
};

}  // namespace MTF_BACKUP
