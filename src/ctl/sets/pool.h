#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kolt/pool_info.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/set_key.h"

namespace ctl {

struct Options;

/// A set of a pool.
struct Pool_Set {
  MTF_BACKUP::Pool_Key key;
  MTF_BACKUP::Commit_Record record;
};

/// Sets of a pool, as far as their records can be read.
struct Pool_Sets {
  std::vector<Pool_Set> sets;                    ///< in the order of list_pool()
  std::vector<MTF_BACKUP::Pool_Key> unreadable;  ///< damaged, or of a newer format; each has been logged
};

/// A storage pool that this program reads and changes by itself, without an agent. Threads: one at a time.
class Pool {
 public:
  /// Nothing is opened. The access key of the storage comes from TESSARIN_ACCESS_KEY.
  explicit Pool(Pool_Info info);
  /// The pool that the options name by --pool-file or --pool, or else that of the agent.
  /// @throws Failure  the file cannot be used, or the agent does not tell a pool.
  static Pool of(const Options& options);

  /// @throws Failure (exit_pool): it is a directory that is not there.
  void check() const;

  /// The sets that are there, unread. Empty: all hosts, all resources. @throws Failure (exit_pool).
  std::vector<MTF_BACKUP::Pool_Key> keys(const std::string& host, const std::string& resource) const;

  /// Reads the records of all these sets. One that has gone meanwhile is left out. @throws Failure (exit_pool).
  Pool_Sets read(const std::vector<MTF_BACKUP::Pool_Key>& keys) const;
  Pool_Sets sets(const std::string& host, const std::string& resource) const { return read(keys(host, resource)); }
  /// Reads one record. @throws Failure (exit_pool): also where it is damaged.
  MTF_BACKUP::Commit_Record record(const MTF_BACKUP::Pool_Key& key) const;

  /// The storage of a set's resource. @throws Failure (exit_pool).
  MTF_BACKUP::Channel_Factory_var channels(const MTF_BACKUP::Pool_Key& key) const;
  std::shared_ptr<Client_IO_Base> storage(const MTF_BACKUP::Pool_Key& key) const;

 private:
  [[noreturn]] void fail() const;

  Pool_Info info_;
  Client_IO_Base::Options options_;
};

}  // namespace ctl
