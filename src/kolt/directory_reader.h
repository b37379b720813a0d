#pragma once

#include <dirent.h>

#include <memory>
#include <string>

#include "kolt/directory_entry.h"
#include "kolt/export.h"

/**
 * Reads one directory, in the order of the file system.
 *
 * Life: open(), then read() until it gives false. An object may be opened again. Holds one descriptor from open() to
 * the next open() or the destructor. Nothing here logs or throws. Threads: one at a time.
 */
class TESSARIN_API Directory_Reader {
 public:
  Directory_Reader() = default;

  /// @param path     the directory; a symbolic link to one is followed.
  /// @param pattern  shell pattern that names have to match; null means all entries.
  /// The last two arguments serve other systems and change nothing here.
  /// @return whether the directory is open. If not, errno and last_error() tell why.
  bool open(const char* path, const char* pattern, bool, reparse_types_t);

  /// The next entry, without "." and "..", its own status filled in (a link is not followed). An entry that vanished
  /// since its name was read is left out.
  /// @return false at the end or on an error, which last_error() tells apart; of @a entry then only the name is
  /// defined: of the one whose status cannot be read, behind which the next call goes on; otherwise empty.
  bool read(Directory_Entry& entry);

  /// 0 after a clean end, else the error of the last open() or read().
  int last_error() const { return last_error_; }

 private:
  struct Close_Dir {
    void operator()(DIR* dir) const { closedir(dir); }
  };

  std::unique_ptr<DIR, Close_Dir> dir_;
  bool all_ = true;
  std::string pattern_;
  int last_error_ = 0;
};
