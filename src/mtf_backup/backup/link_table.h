#pragma once

#include <cstdint>
#include <functional>
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

/// Finds the further names of a file. Remembers a file only until all of its names were seen. Threads: one at a time.
class Link_Table {
 public:
  /// To be called for every name of a file with several.
  /// @return empty for the first name, which is remembered as @a path; for a further one the first.
  std::string first_name(const MTF::Entry_Stat& stat, const std::string& path) {
    const auto [at, fresh] = files_.try_emplace(inode_of(stat), First{path, stat.nlink});
    std::string first = fresh ? std::string() : at->second.path;
    if (--at->second.unseen == 0) files_.erase(at);
    return first;
  }

 private:
  struct First {
    std::string path;
    uint64_t unseen;
  };
  std::unordered_map<Inode, First, Inode_Hash> files_;
};

}  // namespace MTF_BACKUP
