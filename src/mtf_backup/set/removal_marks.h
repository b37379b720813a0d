#pragma once

#include <map>
#include <string>

#include "client_io/client_io_base.h"

// What tells a writer that somebody is about to remove its set, or one that it builds on: doc/write-order.md.
namespace MTF_BACKUP {

/// Whether an object of a set is a mark.
bool is_mark(const std::string& object);

/// Says that a set bears a mark. @return false with errno EBUSY.
bool being_removed(const std::string& dir, std::string& problem);

/// Whether the set in a directory bears no mark.
/// @param problem  on failure what is wrong, for a log line; errno is EBUSY where there is a mark.
[[nodiscard]] bool has_no_mark(Client_IO_Base& storage, const std::string& dir, std::string& problem);

/**
 * The marks of one remover. Each has a name of its own, so that of two removers the one that gives up leaves the
 * other's mark where it is. Those that stand at the end are taken away.
 *
 * Errors: false with errno, logged where found. Ownership: borrows the storage. Threads: one.
 */
class Removal_Marks {
 public:
  explicit Removal_Marks(Client_IO_Base& storage) : storage_(storage) {}
  ~Removal_Marks();
  Removal_Marks(const Removal_Marks&) = delete;
  Removal_Marks& operator=(const Removal_Marks&) = delete;

  /// Marks a directory. Where the storage is full it goes without, after a warning: removing must still be possible.
  [[nodiscard]] bool put(const std::string& dir);
  /// Takes the mark of a directory away, which stays.
  void lift(const std::string& dir);
  /// Removes the set's objects: the commit record first, marks last. Where that fails the mark stays.
  [[nodiscard]] bool remove_set(const std::string& dir);

 private:
  Client_IO_Base& storage_;
  std::map<std::string, std::string> keys_;  // of marks, by directory
};

}  // namespace MTF_BACKUP
