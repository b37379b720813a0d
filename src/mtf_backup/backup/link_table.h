#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "mtf/core/entry.h"

namespace MTF_BACKUP {

/// Tells an inode from all others.
struct Inode {
  uint64_t dev;
  uint64_t ino;
  bool operator==(const Inode&) const = default;
};

inline Inode inode_of(const MTF::Entry_Stat& stat) {
  return {stat.dev, stat.ino};
}

struct Inode_Hash {
  size_t operator()(const Inode& inode) const {
    return std::hash<uint64_t>()(inode.ino * 0x9e3779b97f4a7c15u ^ inode.dev);
  }
};

/**
 * Finds the further names of a file. Remembers a file until all of its names were seen: one with names outside of the
 * sources to the end.
 *
 * A file that is deleted meanwhile may leave its inode to another one, which must never be taken for a further name:
 * its data would be in no set. So a name counts as a further one only where the birth of the file is the same too.
 * Where the filesystem tells none, all that a change of the file would change has to be the same; a file that is
 * changing then has its data stored once more, which costs no more than room. Threads: one at a time.
 */
class Link_Table {
 public:
  /**
   * To be called for every name of a file with several.
   *
   * @param birth  when the file was made, if that is known.
   * @return empty for the first name, which is remembered as @a path; for a further one the first.
   */
  std::string first_name(const MTF::Entry_Stat& stat, const std::optional<MTF::Timestamp>& birth,
                         const std::string& path) {
    const Life life = birth ? Life{stat.mode & S_IFMT, *birth, {}, {}, 0}
                            : Life{stat.mode & S_IFMT, {}, stat.mtime, stat.ctime, stat.size};
    File& file = files_[inode_of(stat)];
    const bool further = file.unseen > 0 && file.life == life;
    if (!further) file = {path, life, stat.nlink};
    std::string first = further ? file.path : std::string();
    if (--file.unseen == 0) files_.erase(inode_of(stat));
    return first;
  }

 private:
  /// What no two files with one inode have in common, as far as that can be told.
  struct Life {
    uint32_t type = 0;
    MTF::Timestamp birth;
    MTF::Timestamp mtime;
    MTF::Timestamp ctime;
    uint64_t size = 0;
    bool operator==(const Life&) const = default;
  };
  struct File {
    std::string path;
    Life life;
    uint64_t unseen = 0;
  };
  std::unordered_map<Inode, File, Inode_Hash> files_;
};

}  // namespace MTF_BACKUP
