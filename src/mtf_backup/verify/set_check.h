#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "client_io/client_io_base.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/verify/finding_log.h"
#include "mtf_backup/verify/object_hash.h"

namespace MTF_BACKUP {

/// Looks at the objects of one set, all but the data in its media. What it finds goes to the thread's damage listener.
/// Every step is false only where the storage failed and going on is no use; logged. Threads: one at a time.
class Set_Check {
 public:
  /// All are borrowed. @param dir  of the set.
  Set_Check(Client_IO_Base& storage, const Commit_Record& record, const std::string& dir, Finding_Log& findings)
      : storage_(storage), record_(record), dir_(dir), findings_(findings) {}

  /// Every object is there and as long as the record tells; the catalog is among them.
  bool check_objects();
  /// Every record of every index, and that the frames lie back to back.
  bool check_indexes(const Run_State& state);
  /// The sets of the chain are there, with their media and indexes.
  bool check_chain();
  /// The whole catalog, and that its entries name what there is. @a each gets what is fit for reading.
  bool check_catalog(const Run_State& state, const std::function<bool(const Catalog_Entry&)>& each);
  /// What an object's bytes come to. @param storage  reads what of them was not read before; it is none that hashes.
  bool check_hash(Client_IO_Base& storage, const Stored_Object& object, Object_Hash& hash);

 private:
  bool check_object(const std::string& key, uint64_t size);
  bool check_index(unsigned channel, const Run_State& state);
  bool check_link(const Chain_Link& link);
  const char* fault(const Catalog_Entry& entry) const;
  bool go_on(const std::string& key, uint64_t offset) const;
  std::string key_of(const std::string& name) const { return dir_ + '/' + name; }

  Client_IO_Base& storage_;
  const Commit_Record& record_;
  const std::string dir_;
  Finding_Log& findings_;
};

}  // namespace MTF_BACKUP
