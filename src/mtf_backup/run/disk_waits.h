#pragma once

#include <cstddef>

namespace MTF_BACKUP {

/// Tells whether a thread waits for a disk or a file server. Threads: the one that it is about.
class Disk_Waits {
 public:
  /**
   * Whether the calling thread has waited since the last call, or since it began.
   *
   * What comes from a disk is counted by the system. What comes from a server mostly is not, but a thread that pauses
   * for many of its @a operations waits for something; waits for other threads of the run are few beside that.
   */
  bool waited(size_t operations);

 private:
  long blocks_ = 0;
  long pauses_ = 0;
};

}  // namespace MTF_BACKUP
