#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client_io/client_io_base.h"
#include "kolt/export.h"
#include "mtf_backup/set/commit_record.h"

namespace MTF_BACKUP {

/// Names one set of a resource.
struct TESSARIN_API Set_Id {
  std::string name;  ///< raw bytes, not empty
  uint32_t seq = 0;
  uint32_t incarnation = 0;  ///< from 1

  /// The key of the set's directory: "<name, encoded>/<seq, 10 digits>.<incarnation>".
  std::string dir() const;
};

/// A name as one component of a key: all bytes but letters, digits and "_-." as %XX, and a '.' in the first place too.
/// What then has more than 255 bytes is cut to 222 and ends in '%' and the XXH3-128 of the name.
TESSARIN_API std::string encode_name(const std::string& name);

/**
 * The sets of one resource: <pool>/<host_uuid>/<minor_resource_id>. A set is what has a valid commit record.
 *
 * Writing: begin(), the media, the catalog, commit(). One writer per resource at a time; readers at any time. Where
 * others write or remove all the same, in this process or another, somebody fails and no set that stands loses
 * anything (doc/write-order.md).
 *
 * Errors: false with errno, after one line at LM_ERROR, unless told otherwise.
 * Ownership: shares the storage. Threads: any, under the rule above.
 */
class TESSARIN_API Set_Store {
 public:
  explicit Set_Store(std::shared_ptr<Client_IO_Base> storage);

  typedef std::function<bool(const Set_Id&, const Commit_Record&)> Callback;

  /**
   * Calls @a each per set, ordered by encoded name, then sequence number, then incarnation as a number. A record that
   * is damaged is logged and passed over, and the listing ends false (errno EBADMSG) after all others were shown.
   * @retval false  also when the callback gave false (errno ECANCELED).
   */
  [[nodiscard]] bool list(const Callback& each);

  /**
   * The set written under @a name and @a seq; @a incarnation 0 is the newest.
   * @retval false  errno is ENOENT, not logged, where there is none; or a failure. The outputs are then unchanged.
   */
  [[nodiscard]] bool find(const std::string& name, uint32_t seq, uint32_t incarnation, Set_Id& id,
                          Commit_Record& record);

  /**
   * The set in the directory @a dir, as Set_Id::dir() names it.
   * @retval false  as find().
   */
  [[nodiscard]] bool read(const std::string& dir, Commit_Record& record);

  /// The id for a new set: the incarnation after the highest that left anything in the pool. Writes nothing.
  [[nodiscard]] bool begin(const std::string& name, uint32_t seq, Set_Id& id);

  /**
   * Writes the commit record, with the name and the numbers of @a id, which makes the set. All objects it names are
   * finished by then; one that is missing or has another size is a failure, and so is a set of its chain that is gone.
   * Afterwards it looks whether somebody has begun to remove the set or one of its chain, and then takes the record
   * back.
   * @retval false  the set does not exist; errno EEXIST when a set of this id does, EBUSY when one is being removed.
   */
  [[nodiscard]] bool commit(const Set_Id& id, const Commit_Record& record);

  /**
   * Whether all objects that the record of the set in @a dir names are there in their sizes, and nobody has begun to
   * remove it. Nothing of them is read.
   * @param problem  on failure what is wrong, for a log line.
   */
  [[nodiscard]] bool has_objects(const std::string& dir, const Commit_Record& record, std::string& problem);

  /// The record of a set of a chain. @param problem  on failure what is wrong, for a log line.
  [[nodiscard]] bool read_member(const Chain_Link& link, Commit_Record& record, std::string& problem);

  /// The sets whose chain names this one: they cannot be restored without it. Records that are damaged have no say.
  [[nodiscard]] bool dependents(const Set_Id& id, std::vector<Set_Id>& sets);

  /**
   * Removes sets, those that build on others before these. Of each the commit record goes first, so that a crash leaves
   * leftovers and never a set with holes. True as well where there was none. Before anything goes each is marked; a set
   * that bears a mark can be read, but none builds on it any more. Removing it again finishes what was interrupted.
   *
   * @param on_removed  told of each that is gone; where it gives false the others stay.
   * @retval false  errno EBUSY: another set, which is not to be removed, needs one of them; then nothing is removed.
   *   ECANCELED, not logged: @a on_removed gave false. Or a failure. What was removed before stays removed.
   */
  [[nodiscard]] bool remove(
      const std::vector<Set_Id>& sets,
      const std::function<bool(const Set_Id&)>& on_removed = [](const Set_Id&) { return true; });
  [[nodiscard]] bool remove(const Set_Id& id) { return remove(std::vector<Set_Id>{id}); }

  /// Removes what a writer that gave up has left of a set: the objects that it finished, and those it did not. Nothing
  /// where a set of this id was committed after all. Reads nothing, so that it works with a client that was cancelled.
  [[nodiscard]] bool discard(const Set_Id& id, const std::vector<Stored_Object>& objects);

  /// Removes all that no commit record stands for: unfinished objects and whole directories of sets that were never
  /// committed, but for directories that the chain of a set names. A writer that is at work there fails. Foreign
  /// objects stay.
  [[nodiscard]] bool sweep();

 private:
  bool sweep(const std::set<std::string>& leftovers);
  bool stands(const std::string& dir, const Commit_Record& record, std::string& problem);

  const std::shared_ptr<Client_IO_Base> storage_;
};

/// What errno says about a record that could not be had, for a log line.
std::string why_no_record(int error);

}  // namespace MTF_BACKUP
