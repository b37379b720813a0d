#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test_support {

/// What two trees were found to differ in. Shares no code with what it judges: plain system calls only.
struct Tree_Report {
  std::size_t entries = 0;               ///< compared, the roots among them
  unsigned long long bytes = 0;          ///< of file content, compared byte by byte
  std::vector<std::string> differences;  ///< "path: what differs", at most 1000
};

/**
 * Compares @a left with @a right: names, types, content, link targets, which names are hard links of one file, modes
 * with their special bits, owners, device numbers, modification times in nanoseconds, and extended attributes, among
 * them access lists and file capabilities; and whether holes on the left have become blocks on the right.
 *
 * Access and change times are left out: reading changes the one, nobody can set the other. A tree that cannot be read
 * is a difference, never a silent success.
 */
Tree_Report compare_trees(const std::string& left, const std::string& right);

}  // namespace test_support
