#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

#include "kolt/export.h"
#include "kolt/posix_fd.h"

namespace kolt {

/**
 * The way from a directory down to one below it, for walks of any depth that use few descriptors and no recursion.
 *
 * Only the innermost directories are held open. An outer one is opened again through ".." when the walk comes back to
 * it, and must then be the directory that it was: a tree that is moved in the meantime leads nowhere else.
 *
 * Life: open(), then enter() and leave() in turn. Nothing here logs. Threads: one at a time.
 */
class TESSARIN_API Directory_Stack {
 public:
  /// @param max_open  how many descriptors may be used; at least 2.
  explicit Directory_Stack(std::size_t max_open = 32);

  /// Starts at a directory. @return false, with errno, if it cannot be opened. A link to a directory is followed.
  bool open(const char* path);
  /// Starts at a directory that is open for reading.
  void open(Posix_Fd directory);

  /// Goes down to the directory @a name of fd(). A symbolic link is not followed.
  /// @return false, with errno, if it cannot be opened; then nothing has changed.
  bool enter(const char* name);

  /// Goes back up. @return false if there is no directory above, or if it is not there any more (errno ENOENT or the
  /// error of opening it): then the stack is empty and the walk at its end.
  bool leave();

  /// The innermost directory, open for reading; -1 if there is none.
  int fd() const { return levels_.empty() ? -1 : levels_.back().fd.get(); }
  /// The number of directories from the outermost to the innermost.
  std::size_t depth() const { return levels_.size(); }

 private:
  struct Level {
    Posix_Fd fd;
    // Known once fd is closed.
    dev_t device = 0;
    ino_t inode = 0;
  };

  bool close_outermost();
  static bool open_again(Level& parent, int child);

  std::size_t max_open_;
  std::size_t first_open_ = 0;  // all levels from here on are open
  std::vector<Level> levels_;
};

}  // namespace kolt
